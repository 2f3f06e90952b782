#include "tools/tessaly/transfer.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace tessaly::tool {

progress::progress(const char* what, std::uint64_t total)
    : what_(what), total_(total), shown_(::isatty(STDERR_FILENO) == 1)
{}

progress::~progress()
{
    if (shown_ && drawn_ != ~std::uint64_t{0})
        std::fputc('\n', stderr);
}

void progress::at(std::uint64_t bytes)
{
    constexpr std::uint64_t WIDTH = 40;
    constexpr std::uint64_t MIB = 1024 * 1024;
    const std::uint64_t drawing =
        total_ != 0 ? std::min<std::uint64_t>(bytes, total_) / (total_ / 100 + 1) : bytes / MIB;
    const bool done = total_ != 0 && bytes >= total_;
    if (!shown_ || (drawing == drawn_ && !done))
        return;
    drawn_ = drawing;
    if (total_ == 0) {
        std::fprintf(stderr, "\r%s %llu MiB", what_, static_cast<unsigned long long>(drawing));
        return;
    }
    const auto percent = done ? 100 : drawing;
    const auto filled = static_cast<int>(percent * WIDTH / 100);
    std::fprintf(stderr, "\r%s [%.*s%*s] %3d%%", what_, filled,
                 "========================================", static_cast<int>(WIDTH) - filled, "",
                 static_cast<int>(percent));
}

}  // namespace tessaly::tool
