// What node and client do on their sockets: packets, and packets that bring a descriptor.
#pragma once

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>

namespace tessaly::runtime {

// As send and recv, errno included, but system calls of their own: the libc of i386 goes through one call for all of what sockets
// do, which takes the arguments from memory: some percent of a verb, on each side.
inline ssize_t send_packet(int socket, const void* packet, std::size_t bytes, int flags) noexcept
{
    return syscall(SYS_sendto, socket, packet, bytes, flags, nullptr, 0);
}

inline ssize_t receive_packet(int socket, void* buffer, std::size_t room, int flags) noexcept
{
    return syscall(SYS_recvfrom, socket, buffer, room, flags, nullptr, nullptr);
}

// The same with an open descriptor, of which the receiver gets one of its own; -1: without.
inline ssize_t send_with_descriptor(int socket, const void* packet, std::size_t bytes, int descriptor, int flags) noexcept
{
    iovec part{const_cast<void*>(packet), bytes};
    alignas(cmsghdr) char extra[CMSG_SPACE(sizeof descriptor)]{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (descriptor >= 0) {
        message.msg_control = extra;
        message.msg_controllen = sizeof extra;
        cmsghdr& handed_over = *CMSG_FIRSTHDR(&message);
        handed_over.cmsg_level = SOL_SOCKET;
        handed_over.cmsg_type = SCM_RIGHTS;
        handed_over.cmsg_len = CMSG_LEN(sizeof descriptor);
        std::memcpy(CMSG_DATA(&handed_over), &descriptor, sizeof descriptor);
    }
    return sendmsg(socket, &message, flags);
}

// descriptor: one that came with the packet, close-on-exec, which the caller closes; else left alone.
inline ssize_t receive_with_descriptor(int socket, void* buffer, std::size_t room, int& descriptor, int flags) noexcept
{
    iovec part{buffer, room};
    alignas(cmsghdr) char extra[CMSG_SPACE(sizeof descriptor)];
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = extra;
    message.msg_controllen = sizeof extra;
    const ssize_t bytes = recvmsg(socket, &message, flags | MSG_CMSG_CLOEXEC);
    const cmsghdr* const handed_over = bytes >= 0 ? CMSG_FIRSTHDR(&message) : nullptr;
    if (handed_over != nullptr && handed_over->cmsg_level == SOL_SOCKET && handed_over->cmsg_type == SCM_RIGHTS &&
        handed_over->cmsg_len == CMSG_LEN(sizeof descriptor))
        std::memcpy(&descriptor, CMSG_DATA(handed_over), sizeof descriptor);
    return bytes;
}

}  // namespace tessaly::runtime
