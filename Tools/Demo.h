#pragma once

#include "Tools/ChildProcess.h"
#include "Tools/ContactSheet.h"
#include "Tools/DemoSession.h"
#include "Tools/EventStream.h"
#include "Tools/PictureStream.h"
#include "Tools/Reporter.h"
#include "Tools/StopSignal.h"

#include <memory>
#include <string>
#include <vector>

namespace pavo::tools {

struct DemoOptions {
    SessionKind session = SessionKind::automatic;
    std::string sheetPath = "pavo-demo.png";
    double phaseSeconds = 5;
};

// Takes a camera through its life before two clients that stay the same all the time, GStreamer's and ours,
// and measures what they see: placeholder, a video file, the producer killed, a second producer, the end.
//
// Ownership: owns every process that it starts, and ends it.
class Demo final {
public:
    Demo(const DemoOptions& options, Reporter& reporter, const StopSignal& stop);
    ~Demo();

    // True when everything that the demo shows was as it should be.
    bool run();

private:
    struct Child {
        std::string name;
        ChildProcess process;
        std::unique_ptr<EventStream> events;  // where it has --json
    };
    struct Phase {
        std::string name;
        double expectedRate;
        std::int64_t beginNs;
        std::int64_t endNs = 0;
        std::string told;  // what the producer heard about watching processes
        std::vector<ContactSheet::Tile> tiles;
    };
    // What one client saw of a phase.
    struct Seen {
        std::size_t frames = 0;
        double rate = 0;  // without the moment of the change
        double gapAtChangeMs = 0;
    };
    enum class Picture { placeholder, video, pattern };

    bool prepare();
    bool startCamera();
    bool startClients();
    bool makeClip();
    bool startVideoProducer();
    bool startPatternProducer();
    bool playPhases();
    bool playPhase(std::string name, double expectedRate, std::int64_t beginNs, Picture picture);
    void stopProducer(int signal);
    std::unique_ptr<Child> startPavo(std::string name, std::vector<std::string> arguments, UniqueFd input);
    ChildProcess::Options optionsFor(std::vector<std::string> arguments) const;
    UniqueFd logFile() const;

    bool isPicture(Picture picture, const std::vector<std::uint8_t>& rgb) const;
    std::string whoWasTold(bool* isComplete) const;
    Seen seenBy(const std::vector<std::int64_t>& arrivalsNs, const Phase& phase) const;
    std::vector<std::int64_t> arrivalsAtView() const;
    void check(bool isGood, const std::string& sentence);
    void report();
    void printLog() const;

    const DemoOptions options_;
    Reporter& reporter_;
    const StopSignal& stop_;

    std::unique_ptr<DemoSession> session_;
    std::unique_ptr<Child> camera_;
    std::unique_ptr<Child> view_;
    std::unique_ptr<Child> foreign_;
    std::unique_ptr<PictureStream> pictures_;  // of the foreign client
    std::unique_ptr<Child> decoder_;
    std::unique_ptr<Child> producer_;

    std::vector<std::uint8_t> placeholder_;
    std::vector<Phase> phases_;
    std::vector<std::string> failures_;
};

}  // namespace pavo::tools
