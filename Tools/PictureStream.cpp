#include "Tools/PictureStream.h"

#include "Tools/ByteReader.h"
#include "Tools/StopSignal.h"

#include <utility>

namespace pavo::tools {

PictureStream::PictureStream(UniqueFd readEnd, std::uint32_t width, std::uint32_t height)
    : readEnd_(std::move(readEnd)),
      pictureBytes_(std::size_t{width} * height * 3),
      thread_([this] { read(); })
{}

PictureStream::~PictureStream()
{
    thread_.join();
}

void PictureStream::read()
{
    ByteReader reader(readEnd_.get());
    std::vector<std::uint8_t> picture(pictureBytes_);
    while (reader.read(picture) == picture.size()) {
        const std::lock_guard lock(mutex_);
        arrivalsNs_.push_back(monotonicNs());
        latest_ = picture;
        changed_.notify_all();
    }
}

std::vector<std::int64_t> PictureStream::arrivalsNs() const
{
    const std::lock_guard lock(mutex_);
    return arrivalsNs_;
}

std::vector<std::uint8_t> PictureStream::latest() const
{
    const std::lock_guard lock(mutex_);
    return latest_;
}

bool PictureStream::waitForFirst(std::chrono::milliseconds deadline)
{
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, deadline, [this] { return !arrivalsNs_.empty(); });
}

}  // namespace pavo::tools
