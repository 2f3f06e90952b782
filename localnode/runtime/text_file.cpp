// Opening, writing and stamping for logs and trace.
#include "localnode/runtime/text_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace tessaly::runtime {

int open_text_file(const char* name) noexcept
{
    if (name == nullptr || *name == '\0')
        return -1;
    if (std::string_view{name} == "stderr")
        return STDERR_FILENO;
    return open(name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
}

bool write_text(int file, std::string_view text) noexcept
{
    const int error_of_caller = errno;
    while (!text.empty()) {
        const ssize_t written = write(file, text.data(), text.size());
        if (written > 0)
            text.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            break;
    }
    errno = error_of_caller;
    return text.empty();
}

stamp stamp_now() noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    stamp made;
    made.print("%04d-%02d-%02d %02d:%02d:%02d.%03ld [%d.%d]", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
               local.tm_hour, local.tm_min, local.tm_sec, now.tv_nsec / 1'000'000, static_cast<int>(getpid()),
               static_cast<int>(gettid()));
    return made;
}

}  // namespace tessaly::runtime
