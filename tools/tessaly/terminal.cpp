#include "tools/tessaly/terminal.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

namespace tessaly::tool {

void say(std::string_view line)
{
    const std::string text = std::string(line) + '\n';
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
}

std::string printable(std::string_view text, std::size_t most)
{
    std::string shown(text.substr(0, most));
    for (char& c : shown)
        if (c < ' ' || c > '~')
            c = '.';
    return text.size() > most ? shown + "..." : shown;
}

std::string text_of(const char* format, ...)
{
    char text[1024];
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

}  // namespace tessaly::tool
