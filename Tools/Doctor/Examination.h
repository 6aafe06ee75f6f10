#pragma once

#include "Tools/Doctor/System.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace pavo::tools {

// What the checks have in common: each fact is found out once, when the first check asks for it.
//
// Threads: for one thread.
class Examination final {
public:
    // A camera or a producer of ours that runs.
    struct PavoProcess {
        Process process;
        std::string nameFolder;  // where it looks for names; empty: may not be known
        std::map<std::string, std::string> environment;
    };

    explicit Examination(const System& system) : system_(system) {}
    Examination(const Examination&) = delete;
    Examination& operator=(const Examination&) = delete;

    const System& system() const { return system_; }

    // An environment variable that is set to something.
    std::optional<std::string> variable(const std::string& name) const;
    // Where PipeWire's sockets lie; empty where that is nowhere.
    std::string runtimeFolder() const;
    // Where this user's camera and producers find each other.
    const std::string& nameFolder();
    // The name that producers follow to the camera.
    std::string cameraName();
    // The PipeWire that this user's programs ask for cameras.
    std::string clientRemote() const;

    const std::vector<Process>& processes();
    // Cameras whose name is, or would be, in our folder.
    std::vector<PavoProcess> camerasHere();
    // This user's other cameras.
    std::vector<PavoProcess> camerasElsewhere();
    // Everybody's `pavo send`.
    std::vector<PavoProcess> producers();
    // What other users run.
    std::vector<Process> foreignCameras();

    const Result<CameraStatus>& status();
    // The same, asked once more.
    const Result<CameraStatus>& statusAgain();
    // The camera's in PipeWire.
    static constexpr const char* kNodeName = "pavo-camera";
    // The session's PipeWire, and a camera's own.
    static constexpr const char* kDaemon = "pipewire-0";
    static constexpr const char* kEmbedded = "pavo-0";
    const PipeWireAnswer& pipeWire(const std::string& remote);
    // The same, asked once more.
    const PipeWireAnswer& pipeWireAgain(const std::string& remote);
    const Result<CameraPortal>& portal();
    const Result<std::optional<UserService>>& service();

private:
    std::string folderFor(const std::map<std::string, std::string>& environment) const;
    std::vector<PavoProcess> running(const std::string& command);

    const System& system_;
    std::optional<std::string> nameFolder_;
    std::optional<std::vector<Process>> processes_;
    std::optional<Result<CameraStatus>> status_;
    std::map<std::string, PipeWireAnswer> pipeWires_;
    std::optional<Result<CameraPortal>> portal_;
    std::optional<Result<std::optional<UserService>>> service_;
};

// "Process 12", or "Processes 12 and 13".
std::string namesOf(const std::vector<Examination::PavoProcess>& processes);
// How the camera is started anew, be it a service or not.
std::string restartOf(Examination& examination);

}  // namespace pavo::tools
