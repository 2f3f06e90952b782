// News about the node and the process: an announced conversation has come, the node's services end, the process has
// forked.
#pragma once

#include "wire/datagrams.h"

namespace tessaly {

// What became of an announced receive-allocate. The datagram has its full length and stays the caller's.
void vav_appl_ready(const appl_ready_datagram& ready) noexcept;

// Completes every verb and ends every TP; the library stops with the last one.
void vav_sys_term() noexcept;

// In the child of a fork: drops the parent's TPs, paths and verbs without completing any, and stops the library.
void vav_appl_forked() noexcept;

}  // namespace tessaly
