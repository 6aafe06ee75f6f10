// A producer at full size: draws every pixel of each frame and sends it at its pace to a camera in another
// process, which keeps the latest surfaces in use. Says on one line of JSON how many frames were due, sent
// and received, how late they began, what sending cost, and how busy the machine was otherwise.
//
//     ProducerBenchmark [seconds [width height [frames per second]]]        60 3840 2160 60
#include "Tests/Producer/CameraDouble.h"

#include <nlohmann/json.hpp>
#include <pavo/producer.hpp>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr const char* kService = "com.example.benchmark";

std::int64_t nowNs()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

// The other process: until its standard input ends, then says how many frames came.
int beCamera()
{
    const auto camera = pavo::test::CameraDouble::create(kService);
    camera->setSubscribed(true);
    char byte = 0;
    while (::read(STDIN_FILENO, &byte, 1) > 0) {
    }
    std::printf("%llu\n", static_cast<unsigned long long>(camera->frameCount()));
    return 0;
}

class CameraProcess final {
public:
    CameraProcess()
    {
        std::array<int, 2> input{};
        std::array<int, 2> output{};
        if (::pipe2(input.data(), O_CLOEXEC) != 0 || ::pipe2(output.data(), O_CLOEXEC) != 0) std::abort();
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        std::string self = "/proc/self/exe", word = "--camera";
        std::array<char*, 3> arguments = {self.data(), word.data(), nullptr};
        if (::posix_spawn(&pid_, self.c_str(), &actions, nullptr, arguments.data(), environ) != 0)
            std::abort();
        posix_spawn_file_actions_destroy(&actions);
        ::close(input[0]);
        ::close(output[1]);
        input_ = input[1];
        output_ = output[0];
    }
    CameraProcess(const CameraProcess&) = delete;
    CameraProcess& operator=(const CameraProcess&) = delete;
    ~CameraProcess() { ::close(output_); }

    // Ends it.
    std::uint64_t frameCount() const
    {
        ::close(input_);
        std::array<char, 32> text{};
        const auto size = ::read(output_, text.data(), text.size() - 1);
        int status = 0;
        ::waitpid(pid_, &status, 0);
        return size > 0 ? std::strtoull(text.data(), nullptr, 10) : 0;
    }

private:
    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
};

double microseconds(std::vector<std::int64_t>& values, double part)
{
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const auto last = static_cast<double>(values.size() - 1);
    return static_cast<double>(values[static_cast<std::size_t>(part * last)]) / 1000;
}

nlohmann::json spread(std::vector<std::int64_t>& values)
{
    return {{"median", microseconds(values, 0.5)},
            {"percentile99", microseconds(values, 0.99)},
            {"longest", microseconds(values, 1)}};
}

void draw(const pavo::ProducerFrame& frame, std::uint64_t number)
{
    const auto& plane = frame.plane(0);
    for (std::uint32_t y = 0; y < plane.height; ++y)
        std::memset(frame.row(0, y), static_cast<int>((y + number) % 256),
                    std::size_t{plane.width} * plane.bytes_per_element);
}

double processorSeconds()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

int measure(std::uint32_t seconds, std::uint32_t width, std::uint32_t height, std::uint32_t rate)
{
    std::string folder = (std::filesystem::temp_directory_path() / "pavo-benchmark-XXXXXX").string();
    if (!::mkdtemp(folder.data())) return 1;
    ::setenv("PAVO_BOOTSTRAP_DIR", folder.c_str(), 1);
    const CameraProcess camera;
    pavo_producer_config config = PAVO_PRODUCER_CONFIG_INIT(PAVO_UYVY, width, height);
    config.rate_numerator = rate;
    config.service = kService;
    const auto producer = pavo::Producer::open(config);
    if (!producer || producer->waitUntilWanted(10'000'000'000) != pavo::ProducerStatus::ok) return 1;

    const std::uint64_t due = std::uint64_t{seconds} * rate;
    std::vector<std::int64_t> late, drawing, sending;
    late.reserve(due);
    drawing.reserve(due);
    sending.reserve(due);
    const double processorBefore = processorSeconds();
    const std::int64_t begin = nowNs();
    const std::int64_t end = begin + std::int64_t{seconds} * 1'000'000'000;
    for (std::uint64_t number = 0;; ++number) {
        const auto time = producer->nextFrameTime();
        if (!time || *time >= end) break;
        pavo_producer_wait_until(producer->handle(), *time);
        const std::int64_t started = nowNs();
        auto frame = producer->beginFrame();
        if (!frame) continue;
        const std::int64_t begun = nowNs();
        draw(*frame, number);
        const std::int64_t drawn = nowNs();
        frame->send();
        late.push_back(started - *time);
        drawing.push_back(drawn - begun);
        sending.push_back(begun - started + nowNs() - drawn);
    }
    const double processor = processorSeconds() - processorBefore;
    const auto statistics = producer->statistics();
    producer->close();
    std::array<double, 3> load{};
    ::getloadavg(load.data(), 3);
    const auto received = camera.frameCount();
    std::filesystem::remove_all(folder);
    const nlohmann::json result = {
        {"benchmark", "producer"},
        {"width", width},
        {"height", height},
        {"framesPerSecond", rate},
        {"seconds", seconds},
        {"due", due},
        {"sent", statistics.sent},
        {"received", received},
        {"leftOutRingFull", statistics.skipped_ring_full},
        {"notReached", due - std::min(due, statistics.sent + statistics.skipped_ring_full)},
        {"lateUs", spread(late)},
        {"drawingUs", spread(drawing)},
        {"beginAndSendUs", spread(sending)},
        {"processorPercent", 100 * processor / seconds},
        {"loadAverage", load[0]},
        {"processors", ::sysconf(_SC_NPROCESSORS_ONLN)}};
    std::puts(result.dump().c_str());
    return statistics.sent == due && received == due ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--camera") == 0) return beCamera();
    std::array<std::uint32_t, 4> numbers = {60, 3840, 2160, 60};
    bool isUnderstood = argc <= 1 + static_cast<int>(numbers.size());
    for (int index = 1; isUnderstood && index < argc; ++index) {
        const std::string_view text = argv[index];
        auto& number = numbers.at(static_cast<std::size_t>(index - 1));
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        isUnderstood = error == std::errc() && end == text.data() + text.size() && number > 0;
    }
    if (!isUnderstood) {
        std::fprintf(stderr, "usage: ProducerBenchmark [seconds [width height [frames per second]]]\n");
        return 2;
    }
    return measure(numbers[0], numbers[1], numbers[2], numbers[3]);
}
