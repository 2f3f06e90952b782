// What the runtime itself tells in the log: what becomes of its connection to a node in another process.
#pragma once

namespace tessaly::runtime {

// One line, if the log is on.
[[gnu::format(printf, 1, 2)]] void log_node(const char* format, ...) noexcept;

}  // namespace tessaly::runtime
