// The socket on which clients connect, and its file.
#pragma once

#include "localnode/daemon/settings.h"
#include "service/unique_fd.h"

#include <sys/stat.h>

namespace tessaly::daemon {

class listener {
public:
    // Replaces a socket file on which nobody listens. Throws std::runtime_error, with a text for the user.
    explicit listener(const settings& with);
    listener(const listener&) = delete;
    listener& operator=(const listener&) = delete;

    int fd() const noexcept { return socket_.get(); }

    // The next client; none when nobody waits, with errno. Close-on-exec and non-blocking.
    unique_fd next() const noexcept;

    // Takes the file away, unless another node has replaced it.
    void remove_file() const noexcept;

private:
    std::string path_;
    unique_fd socket_;
    struct stat file_ {};
};

}  // namespace tessaly::daemon
