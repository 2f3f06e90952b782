// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace tessaly::service {

class unique_fd {
public:
    unique_fd() noexcept = default;
    explicit unique_fd(int fd) noexcept : fd_(fd) {}
    unique_fd(unique_fd&& from) noexcept : fd_(std::exchange(from.fd_, -1)) {}
    unique_fd& operator=(unique_fd&& from) noexcept
    {
        std::swap(fd_, from.fd_);
        return *this;
    }
    ~unique_fd()
    {
        if (fd_ >= 0)
            close(fd_);
    }

    int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    void reset() noexcept { unique_fd{std::move(*this)}; }

private:
    int fd_ = -1;
};

}  // namespace tessaly::service
