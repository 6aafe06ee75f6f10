#pragma once

#include <unistd.h>

#include <utility>

namespace pavo {

// Owns one file descriptor. Passing it by value transfers it; a plain int borrows. There is no conversion
// to bool, because descriptor 0 is valid.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }
    UniqueFd& operator=(UniqueFd other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }

    int get() const { return fd_; }
    bool isValid() const { return fd_ >= 0; }
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }
    void reset()
    {
        if (fd_ >= 0) ::close(std::exchange(fd_, -1));
    }

private:
    int fd_ = -1;
};

}  // namespace pavo
