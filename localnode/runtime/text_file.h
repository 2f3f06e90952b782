// The files that diagnostics go to, and the stamp that each record begins with.
#pragma once

#include "localnode/runtime/text_line.h"

namespace tessaly::runtime {

// Opens the file for appending, or gives standard error for the name "stderr"; -1 when there is none or it cannot be opened.
int open_text_file(const char* name) noexcept;

// As much as the system takes; a full disk must not stop a verb. Result: whether that was all.
bool write_text(int file, std::string_view text) noexcept;

using stamp = text_line<64>;

// Local date and time, process and thread: "2031-02-03 04:05:06.789 [1234.1235]".
stamp stamp_now() noexcept;

}  // namespace tessaly::runtime
