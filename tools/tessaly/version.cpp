// version: what a library's file says about itself, behind its what-string markers. The file is not loaded.
#include "tools/tessaly/commands.h"

#include <cerrno>
#include <cstring>
#include <memory>

namespace tessaly::tool {

ending version_of(const std::string& name, std::FILE* out)
{
    constexpr std::string_view MARKER = "@(#)";
    constexpr std::size_t BUFFER = 64 * 1024, LONGEST = 255, MOST_LINES = 100;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(name.c_str(), "re"), std::fclose);
    if (file == nullptr)
        return {EXIT_USAGE, "cannot open " + printable(name) + ": " + std::strerror(errno)};

    std::string text;  // of the file; what has been searched is taken out
    std::size_t lines = 0;
    char part[BUFFER];
    for (std::size_t bytes = 1; bytes != 0 && lines < MOST_LINES;) {
        bytes = std::fread(part, 1, sizeof part, file.get());
        text.append(part, bytes);
        std::size_t done = 0;
        while (lines < MOST_LINES) {
            const std::size_t at = text.find(MARKER, done);
            const std::size_t kept = at == std::string::npos ? text.size() - std::min(text.size() - done, MARKER.size() - 1) : at;
            done = kept;
            if (at == std::string::npos || (bytes != 0 && text.size() - at < MARKER.size() + LONGEST))
                break;  // the line may go on in the next part
            const std::string line = text.substr(at + MARKER.size(), LONGEST);
            const std::string shown = line.substr(0, line.find_first_of(std::string_view("\0\n", 2)));
            std::fprintf(out, "%s\n", printable(shown, LONGEST).c_str());
            ++lines;
            done = at + MARKER.size();
        }
        text.erase(0, done);
    }
    if (std::ferror(file.get()) != 0)
        return {EXIT_USAGE, "cannot read " + printable(name) + ": " + std::strerror(errno)};
    if (lines == 0)
        return {EXIT_USAGE,
                printable(name) + " has no what-string marker @(#). Is it a library of this product, like libtessaly.so.7?"};
    return {};
}

}  // namespace tessaly::tool
