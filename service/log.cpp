// The log is the only thing that the whole program shares, so it is the program's.
#include "service/log.h"

#include "service/unique_fd.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

namespace tessaly::service {

namespace {

unique_fd log_file;
level most_detail = level::info;

constexpr const char* names[] = {"error", "warning", "info", "debug"};

}  // namespace

bool log_to(const std::string& file) noexcept
{
    unique_fd opened;
    if (!file.empty()) {
        opened = unique_fd{open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640)};
        if (!opened)
            return false;
    }
    log_file = std::move(opened);
    return true;
}

void log_up_to(level most) noexcept
{
    most_detail = most;
}

bool is_logged(level of) noexcept
{
    return of <= most_detail;
}

void write_log(level of, std::string_view text) noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char line[1024];
    std::size_t used = std::strftime(line, sizeof line, "%Y-%m-%d %H:%M:%S", &local);
    used += static_cast<std::size_t>(snprintf(line + used, sizeof line - used, ".%03ld [%d] %s: ",
                                              now.tv_nsec / 1'000'000, getpid(), names[static_cast<int>(of)]));
    const std::size_t shown = std::min(text.size(), sizeof line - used - 1);
    // A line stays a line whatever a client or a file puts into it.
    std::transform(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(shown), line + used,
                   [](char c) { return static_cast<unsigned char>(c) < ' ' ? '?' : c; });
    line[used + shown] = '\n';
    // In one piece; there is nobody to tell when it fails.
    [[maybe_unused]] const ssize_t written = write(log_file ? log_file.get() : STDERR_FILENO, line, used + shown + 1);
}

std::string error_text(int error)
{
    return strerrordesc_np(error) != nullptr ? strerrordesc_np(error) : "error " + std::to_string(error);
}

}  // namespace tessaly::service
