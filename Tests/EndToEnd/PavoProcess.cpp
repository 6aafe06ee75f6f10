#include "Tests/EndToEnd/PavoProcess.h"

#include "Tests/Support/Patience.h"

#include <signal.h>

#include <array>
#include <utility>

namespace pavo::test {

namespace {

std::vector<std::string> commandLine(std::vector<std::string> arguments, const std::string& program)
{
    arguments.insert(arguments.begin(), program);
    arguments.emplace_back("--json");
    return arguments;
}

}  // namespace

const std::string& pavoProgram()
{
    static const std::string path = PAVO_PROGRAM;
    return path;
}

Ended runToItsEnd(const std::vector<std::string>& command)
{
    const TemporaryFolder folder;
    ChildProcess process(command, folder.path() + "/output");
    const auto status = process.waitForExit(kPatience);
    return {status, readFile(folder.path() + "/output")};
}

PavoProcess::PavoProcess(std::vector<std::string> arguments, const std::string& program)
    : process_(commandLine(std::move(arguments), program), folder_.path() + "/output"),
      output_(folder_.path() + "/output", std::ios::binary)
{}

std::optional<int> PavoProcess::end(int number)
{
    process_.signal(number);
    const auto status = process_.waitForExit(kPatience);
    if (!status) process_.end(SIGKILL);
    return status;
}

const std::vector<std::string>& PavoProcess::story()
{
    read();
    return story_;
}

nlohmann::json PavoProcess::lastReport(const std::string& name)
{
    read();
    nlohmann::json found;
    for (const auto& report : reports_)
        if (report["event"] == name) found = report;
    return found;
}

const std::vector<ViewedFrame>& PavoProcess::frames()
{
    read();
    return frames_;
}

const std::vector<std::string>& PavoProcess::texts()
{
    read();
    return texts_;
}

void PavoProcess::read()
{
    std::array<char, 16 * 1024> bytes;
    for (;;) {
        output_.clear();  // the end of the file is where it is for now
        output_.read(bytes.data(), bytes.size());
        if (output_.gcount() <= 0) return;
        partOfLine_.append(bytes.data(), static_cast<std::size_t>(output_.gcount()));
        std::size_t begin = 0;
        for (auto end = partOfLine_.find('\n'); end != std::string::npos;
             begin = end + 1, end = partOfLine_.find('\n', begin))
            take(partOfLine_.substr(begin, end - begin));
        partOfLine_.erase(0, begin);
    }
}

void PavoProcess::take(const std::string& line)
{
    auto report = nlohmann::json::parse(line, nullptr, false);
    if (!report.is_object()) {
        texts_.push_back(line);
        return;
    }
    const auto name = report.value("event", std::string());
    if (name != "frame") {
        story_.push_back(report.contains("pid") ? name + " " + report["pid"].dump() : name);
        reports_.push_back(std::move(report));
        return;
    }
    ViewedFrame frame{report["sequence"], report["presentationTimeNs"], std::nullopt};
    if (!report["counter"].is_null()) frame.counter = report["counter"];
    frames_.push_back(frame);
}

}  // namespace pavo::test
