// A producer in C++: a white bar that crosses the picture while somebody watches, and a line for each event.
#include <pavo/producer.hpp>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <thread>

namespace {

std::atomic<bool> isStopped = false;

void draw(const pavo::ProducerFrame& frame, std::uint32_t left)
{
    const std::uint32_t right = std::min(left + 32, frame.width());
    for (std::uint32_t y = 0; y < frame.height(); ++y) {
        std::fill_n(frame.row(0, y), frame.width(), std::uint8_t{16});
        std::fill(frame.row(0, y) + left, frame.row(0, y) + right, std::uint8_t{235});
    }
    const auto& chroma = frame.plane(1);
    for (std::uint32_t y = 0; y < chroma.height; ++y)
        std::fill_n(frame.row(1, y), chroma.width * chroma.bytes_per_element, std::uint8_t{128});
}

}  // namespace

int main()
{
    pavo::ProducerStatus status{};
    const pavo_producer_config config = PAVO_PRODUCER_CONFIG_INIT(PAVO_NV12, 1280, 720);
    const auto producer = pavo::Producer::open(config, &status);
    if (!producer) {
        std::fprintf(stderr, "no producer: %s\n", pavo::describe(status));
        return 1;
    }
    for (const int number : {SIGINT, SIGTERM})
        std::signal(number, [](int) { isStopped = true; });
    std::thread listener([&producer] {
        pavo_event event{};
        for (auto heard = producer->nextEvent(event); heard != pavo::ProducerStatus::closed;
             heard = producer->nextEvent(event))
            if (heard == pavo::ProducerStatus::ok)
                std::printf("event %u, process %d\n", event.type, event.pid);
    });
    for (std::uint32_t left = 0; !isStopped; left = (left + 8) % config.width) {
        producer->waitForNextFrame();
        auto frame = producer->beginFrame();
        if (!frame) continue;
        draw(*frame, left);
        frame->send();
    }
    producer->close();
    listener.join();
    return 0;
}
