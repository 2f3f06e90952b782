#include "localnode/daemon/listener.h"

#include <grp.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace tessaly::daemon {

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& why)
{
    throw std::runtime_error(path + ": " + why);
}

sockaddr_un address_of(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        fail(path, "a socket's path has 1 to " + std::to_string(sizeof address.sun_path - 1) + " bytes");
    std::memcpy(address.sun_path, path.c_str(), path.size());
    return address;
}

const sockaddr* as_address(const sockaddr_un& address) noexcept
{
    return reinterpret_cast<const sockaddr*>(&address);
}

unique_fd make_socket(int flags)
{
    return unique_fd{::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0)};
}

// Nobody listens on a socket file that is left over.
void remove_stale(const std::string& path, const sockaddr_un& address)
{
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0)
        return;
    if (!S_ISSOCK(found.st_mode))
        fail(path, "exists and is no socket");
    const unique_fd probe = make_socket(SOCK_NONBLOCK);
    if (connect(probe.get(), as_address(address), sizeof address) == 0 || errno == EAGAIN)
        fail(path, "a node listens there already");
    if (errno != ECONNREFUSED)
        fail(path, error_text(errno));
    log(level::info, "replaces ", path, ", on which nobody listens");
    if (unlink(path.c_str()) != 0 && errno != ENOENT)
        fail(path, error_text(errno));
}

void give_to_group(const std::string& path, const std::string& name)
{
    if (name.empty())
        return;
    const group* const found = getgrnam(name.c_str());
    if (found == nullptr)
        fail(path, "there is no group " + name);
    if (lchown(path.c_str(), static_cast<uid_t>(-1), found->gr_gid) != 0)
        fail(path, "cannot be given to group " + name + ": " + error_text(errno));
}

}  // namespace

listener::listener(const settings& with) : path_(with.socket), socket_(make_socket(SOCK_NONBLOCK))
{
    const sockaddr_un address = address_of(path_);
    if (!socket_)
        fail(path_, error_text(errno));
    remove_stale(path_, address);
    const mode_t before = umask(0777);
    const int bound = bind(socket_.get(), as_address(address), sizeof address);
    const int error = errno;
    umask(before);
    if (bound != 0)
        fail(path_, error_text(error));
    // Until it listens, nobody connects; so there is no moment at which the wrong ones might.
    try {
        give_to_group(path_, with.access.group);
        if (chmod(path_.c_str(), static_cast<mode_t>(with.access.mode)) != 0 || lstat(path_.c_str(), &file_) != 0 ||
            listen(socket_.get(), SOMAXCONN) != 0)
            fail(path_, error_text(errno));
    } catch (...) {
        unlink(path_.c_str());
        throw;
    }
}

unique_fd listener::next() const noexcept
{
    return unique_fd{accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)};
}

void listener::remove_file() const noexcept
{
    struct stat found {};
    if (lstat(path_.c_str(), &found) == 0 && found.st_dev == file_.st_dev && found.st_ino == file_.st_ino)
        unlink(path_.c_str());
}

}  // namespace tessaly::daemon
