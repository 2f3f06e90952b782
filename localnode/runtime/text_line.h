// Text of bounded length, for log records and trace lines. What does not fit is cut.
#pragma once

#include "common/types.h"

#include <cstdarg>
#include <cstdio>
#include <string_view>

namespace tessaly::runtime {

template <u32 Size>
class text_line {
public:
    [[gnu::format(printf, 2, 3)]] void print(const char* format, ...) noexcept
    {
        std::va_list args;
        va_start(args, format);
        const int wanted = std::vsnprintf(text_ + used_, Size - used_, format, args);
        va_end(args);
        if (wanted > 0)
            used_ += static_cast<u32>(wanted) < Size - used_ ? static_cast<u32>(wanted) : Size - used_ - 1;
    }

    void put(char c) noexcept
    {
        if (used_ < Size - 1)
            text_[used_++] = c;
    }

    // Ends the line, in place of its last character if need be.
    void end_line() noexcept
    {
        if (used_ == Size - 1)
            --used_;
        put('\n');
    }

    std::string_view text() const noexcept { return {text_, used_}; }

private:
    char text_[Size] = {};
    u32 used_ = 0;
};

inline char printable(u8 c) noexcept
{
    return c >= 0x20 && c < 0x7F ? static_cast<char>(c) : '.';
}

}  // namespace tessaly::runtime
