#include "Platform/CoreMediaIO/linux/DaemonWatcher.h"

#include "Platform/CoreMediaIO/linux/EmbeddedServer.h"
#include "Platform/CoreMediaIO/linux/PipeWireHeaders.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

namespace cmio {

namespace {

constexpr const char* kDefaultName = "pipewire-0";

std::string firstOf(std::initializer_list<const char*> variables)
{
    for (const char* name : variables)
        if (const char* value = std::getenv(name); value && *value != '\0') return value;
    return {};
}

// As libpipewire finds it.
std::filesystem::path socketPath()
{
    const std::string name = firstOf({"PIPEWIRE_REMOTE"});
    return std::filesystem::path(firstOf({"PIPEWIRE_RUNTIME_DIR", "XDG_RUNTIME_DIR", "HOME"})) /
           (name.empty() ? kDefaultName : name);
}

}  // namespace

DaemonWatcher::DaemonWatcher(PipeWireLoop& loop, std::function<void()> onSocket)
    : loop_(loop.get()),
      onSocket_(std::move(onSocket))
{
    const std::filesystem::path path = socketPath();
    folder_ = path.parent_path();
    socketName_ = path.filename();
}

DaemonWatcher::~DaemonWatcher()
{
    if (source_) pw_loop_destroy_source(loop_, source_);
}

void DaemonWatcher::start()
{
    // Of our own server nobody needs to tell us.
    if (watch_ >= 0 || socketName_ == EmbeddedServer::kName) return;
    if (!source_) {
        const int descriptor = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
        if (descriptor < 0) return;
        const auto onEvent = [](void* self, int readable, std::uint32_t) {
            static_cast<DaemonWatcher*>(self)->read(readable);
        };
        source_ = pw_loop_add_io(loop_, descriptor, SPA_IO_IN, true, onEvent, this);
        if (!source_) {
            ::close(descriptor);
            return;
        }
    }
    watch_ = ::inotify_add_watch(source_->fd, folder_.c_str(), IN_CREATE | IN_MOVED_TO);
}

void DaemonWatcher::stop()
{
    // The descriptor is kept: to close it the kernel waits until nobody uses any watch, which takes it up to
    // half a second on a busy machine.
    if (watch_ >= 0) ::inotify_rm_watch(source_->fd, std::exchange(watch_, -1));
}

void DaemonWatcher::read(int descriptor)
{
    alignas(inotify_event) char bytes[4096];
    const ssize_t size = ::read(descriptor, bytes, sizeof(bytes));
    bool isThere = false;
    for (ssize_t offset = 0; offset < size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(bytes + offset);
        offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        // Lost events belong to no watch, and those of one that has ended may still come.
        const bool isLoss = (event->mask & IN_Q_OVERFLOW) != 0;
        if (watch_ < 0 || (event->wd != watch_ && !isLoss)) continue;
        if ((event->mask & IN_IGNORED) != 0) watch_ = -1;  // the folder has gone
        isThere = isThere || isLoss || (event->len != 0 && socketName_ == event->name);
    }
    if (isThere) onSocket_();
}

}  // namespace cmio
