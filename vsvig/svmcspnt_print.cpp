// The print engine, and the C library's printing under names of our own.
#include "common/export.h"
#include "common/types.h"
#include "runtime/node_runtime.h"

#include <tessaly/diagnostics.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <limits>
#include <string_view>
#include <type_traits>

namespace tessaly::diagnostics {

namespace {

using i64 = std::int64_t;

constexpr i32 RESERVE = 20;
constexpr i32 ENDING = 3;  // newline and two zero bytes

// The buffer, of which no byte behind the limit is written.
class bounded_text {
public:
    bounded_text(char* buffer, i32 limit) noexcept : begin_(buffer), limit_(limit) {}

    void put(char c) noexcept
    {
        if (limit_ == 0 || count_ < limit_ - ENDING)
            begin_[count_++] = c;
    }
    void put(std::string_view text) noexcept
    {
        for (const char c : text)
            put(c);
    }
    void put(char c, i64 times) noexcept
    {
        for (; times > 0 && !is_full(); --times)
            put(c);
    }

    bool is_over() const noexcept { return limit_ != 0 && count_ > limit_ - RESERVE; }

    i32 end() noexcept
    {
        begin_[count_] = '\0';
        return count_;
    }

    // The count takes in the newline and one of the zero bytes.
    i32 cut() noexcept
    {
        std::memcpy(begin_ + count_, "\n\0", ENDING);
        return count_ + 2;
    }

private:
    bool is_full() const noexcept { return limit_ != 0 && count_ == limit_ - ENDING; }

    char* const begin_;
    const i32 limit_;
    i32 count_ = 0;
};

// What stands between % and the conversion.
struct modifiers {
    i32 width = 0;
    i32 precision = 0;
    bool alternate = false;
    bool left = false;
    bool zeros = false;
    bool has_period = false;
    bool is_long = false;  // l
    bool use_long = false;  // L

    bool any_long() const noexcept { return is_long || use_long; }
};

void append_digit(i32& number, char digit) noexcept
{
    constexpr i64 MOST = std::numeric_limits<i32>::max();
    number = static_cast<i32>(std::min(MOST, i64{number} * 10 + (digit - '0')));
}

class engine {
public:
    engine(char* buffer, i32 limit, const char* format, const u32* args) noexcept
        : text_(buffer, limit), next_(format), args_(args)
    {
    }

    i32 run() noexcept
    {
        while (*next_ != '\0') {
            const char c = *next_++;
            if (c != '%')
                text_.put(c);
            else if (!convert())
                break;
            if (text_.is_over())
                return text_.cut();
        }
        return text_.end();
    }

private:
    u32 take_word() noexcept
    {
        u32 word = 0;
        std::memcpy(&word, args_++, sizeof word);
        return word;
    }

    modifiers read_modifiers() noexcept
    {
        modifiers read;
        for (;; ++next_) {
            i32& number = read.has_period ? read.precision : read.width;
            switch (*next_) {
            case '#': read.alternate = true; break;
            case '-': read.left = true; break;
            case '.': read.has_period = true; break;
            case '*': number = static_cast<i32>(take_word()); break;
            case 'l': read.is_long = true; break;
            case 'L': read.use_long = true; break;
            case '0':
                if (!read.has_period && read.width == 0) {
                    read.zeros = true;
                    break;
                }
                [[fallthrough]];
            case '1': case '2': case '3': case '4': case '5': case '6': case '7': case '8': case '9':
                append_digit(number, *next_);
                break;
            default: return read;
            }
        }
    }

    // Result: false at the end of the format.
    bool convert() noexcept
    {
        const modifiers with = read_modifiers();
        const char conversion = *next_;
        if (conversion != '\0')
            ++next_;
        switch (conversion) {
        case 'd': case 'i': case 'w': put_signed(with); break;
        case 'u': put_number(with, take_word(), 10, ""); break;
        case 'o': put_number(with, take_word(), 8, with.alternate ? "0" : ""); break;
        case 'x': case 'X': case 'p': put_number(with, take_word(), 16, with.alternate ? "0X" : ""); break;
        case 'c':
            text_.put(static_cast<char>(take_word()));
            check_plain(with);
            break;
        case 's':
            put_string(with);
            check_plain(with);
            break;
        case '%': text_.put('%'); break;
        default: return put_unknown(with, conversion);
        }
        return true;
    }

    // An unknown conversion, or none because the format ends. Result: false when it ended without a need to test the limit.
    bool put_unknown(const modifiers& with, char conversion) noexcept
    {
        if (!with.any_long())
            v0_assert("svmcspnt", __LINE__, "0");
        else if (put_signed(with); text_.is_over())
            return true;
        if (conversion == '\0')
            return false;
        text_.put(conversion);
        return true;
    }

    static void check_plain(const modifiers& with) noexcept
    {
        if (with.use_long || with.alternate)
            v0_assert("svmcspnt", __LINE__, "(uselong == 0) && (extra == 0)");
    }

    void put_padded(const modifiers& with, i64 bytes, char pad, auto put_body) noexcept
    {
        const i64 missing = with.width - bytes;
        if (!with.left)
            text_.put(pad, missing);
        put_body();
        if (with.left)
            text_.put(pad, missing);
    }

    void put_signed(const modifiers& with) noexcept
    {
        const u32 word = take_word();
        const bool negative = static_cast<i32>(word) < 0;
        put_number(with, negative ? 0 - word : word, 10, negative ? "-" : "");
    }

    void put_number(const modifiers& with, u32 value, u32 base, std::string_view prefix) noexcept
    {
        char digits[16];
        char* const end = std::end(digits);
        char* first = end;
        do
            *--first = "0123456789ABCDEF"[value % base];
        while ((value /= base) != 0);
        const std::string_view body{first, static_cast<std::size_t>(end - first)};
        const i64 zeros = std::max<i64>(with.precision - static_cast<i64>(body.size()), 0);
        const i64 bytes = static_cast<i64>(prefix.size() + body.size()) + zeros;
        put_padded(with, bytes, with.zeros ? '0' : ' ', [&] {
            text_.put(prefix);
            text_.put('0', zeros);
            text_.put(body);
        });
    }

    void put_string(const modifiers& with) noexcept
    {
        const auto* string = reinterpret_cast<const char*>(static_cast<std::uintptr_t>(take_word()));
        if (string == nullptr)
            string = "(null)";
        std::size_t bytes = 0;
        if (with.precision == 0)
            bytes = std::strlen(string);
        else if (with.precision > 0)
            bytes = strnlen(string, static_cast<std::size_t>(with.precision));
        put_padded(with, static_cast<i64>(bytes), ' ', [&] { text_.put({string, bytes}); });
    }

    bounded_text text_;
    const char* next_;
    const u32* args_;
};

i32 print(char* buffer, i32 limit, const char* format, const u32* args) noexcept
{
    if (limit < 0)
        return 0;
    if (limit != 0 && limit <= ENDING) {
        std::memset(buffer, 0, static_cast<std::size_t>(limit));
        return 0;
    }
    return engine(buffer, limit, format, args).run();
}

}  // namespace

}  // namespace tessaly::diagnostics

extern "C" {

TESSALY_EXPORT int t_print_args(char* buffer, int limit, const char* format, const unsigned int* args)
{
    return tessaly::diagnostics::print(buffer, limit, format, args);
}

TESSALY_EXPORT int t_sprintf(char* buffer, const char* format, ...)
{
    std::va_list args;
    static_assert(std::is_pointer_v<std::va_list>, "variadic arguments lie one after the other");
    va_start(args, format);
    const int count = tessaly::diagnostics::print(buffer, 0, format, reinterpret_cast<const unsigned int*>(args));
    va_end(args);
    return count;
}

TESSALY_EXPORT int nb_printf(const char* format, ...)
{
    std::va_list args;
    va_start(args, format);
    const int count = vfprintf(stdout, format, args);
    va_end(args);
    return count;
}

TESSALY_EXPORT int nb_fprintf(FILE* stream, const char* format, ...)
{
    std::va_list args;
    va_start(args, format);
    const int count = vfprintf(stream, format, args);
    va_end(args);
    return count;
}

TESSALY_EXPORT int nb_sprintf(char* buffer, const char* format, ...)
{
    std::va_list args;
    va_start(args, format);
    // As large as the text may become: the buffer is the caller's to measure.
    const int count = vsnprintf(buffer, std::numeric_limits<int>::max(), format, args);
    va_end(args);
    return count;
}

}  // extern "C"
