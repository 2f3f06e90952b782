// Sending and receiving as system calls of their own. The libc of i386 goes through one call for all of what sockets do, which
// takes the arguments from memory: some percent of a verb, on each side.
#pragma once

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>

namespace tessaly::runtime {

// As send and recv, errno included.
inline ssize_t send_packet(int socket, const void* packet, std::size_t bytes, int flags) noexcept
{
    return syscall(SYS_sendto, socket, packet, bytes, flags, nullptr, 0);
}

inline ssize_t receive_packet(int socket, void* buffer, std::size_t room, int flags) noexcept
{
    return syscall(SYS_recvfrom, socket, buffer, room, flags, nullptr, nullptr);
}

}  // namespace tessaly::runtime
