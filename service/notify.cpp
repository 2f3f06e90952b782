#include "service/notify.h"

#include "service/unique_fd.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace tessaly::service {

void notify_manager(std::string_view state) noexcept
{
    const char* const where = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    if (where == nullptr || (*where != '/' && *where != '@') || std::strlen(where) >= sizeof address.sun_path)
        return;
    address.sun_family = AF_UNIX;
    const std::size_t length = std::strlen(where);
    std::memcpy(address.sun_path, where, length);
    if (*where == '@')
        address.sun_path[0] = '\0';  // the abstract namespace
    const unique_fd socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    sendto(socket.get(), state.data(), state.size(), MSG_NOSIGNAL | MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&address),
           static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
}

}  // namespace tessaly::service
