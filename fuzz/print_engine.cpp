// The print engine. One kind of input is any format with the arguments that it takes: what is printed within a limit is held
// against what is printed without one. The other kind is a format that means the same to the C library, which prints it, too.
#include "fuzz/input.h"
#include "runtime/node_runtime.h"

#include <tessaly/diagnostics.h>

#include <sys/mman.h>

#include <iterator>
#include <memory>
#include <string_view>

using namespace tessaly;
using namespace tessaly::fuzz;

// All that the engine takes from a runtime.
extern "C" void v0_assert(const char* module, uint32_t, const char* text)
{
    demand(std::string_view(module) == "svmcspnt", "the module is the engine's");
    demand(text == std::string_view("0") || text == std::string_view("(uselong == 0) && (extra == 0)"), "the report is known");
}

namespace {

constexpr i32 RESERVE = 20;
constexpr i32 MOST = 1 << 16;
constexpr char UNTOUCHED = '\x7E';

// A buffer of the size asked for, right before inaccessible memory.
char* guarded(i32 bytes)
{
    static char* const end = [] {
        void* pages = mmap(nullptr, MOST + 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        demand(pages != MAP_FAILED && mprotect(static_cast<char*>(pages) + MOST + 4096, 4096, PROT_NONE) == 0, "there is memory");
        return static_cast<char*>(pages) + MOST + 4096;
    }();
    std::fill(end - bytes - 1, end, UNTOUCHED);
    return end - bytes;
}

u32 word(const char* string)
{
    return static_cast<u32>(reinterpret_cast<std::uintptr_t>(string));
}

struct arguments {
    std::vector<u32> words;
    std::vector<std::unique_ptr<char[]>> strings;

    // precision: more than 0: so many characters, and perhaps no zero byte behind them
    void add_string(input& in, i32 precision)
    {
        const bool unterminated = in.below(2) == 0 && precision > 0 && precision <= 64;
        const u32 bytes = unterminated ? static_cast<u32>(precision) : in.below(64);
        auto& string = strings.emplace_back(new char[bytes + !unterminated]);
        in.fill(string.get(), bytes);
        std::replace(string.get(), string.get() + bytes, '\0', 'x');
        if (!unterminated)
            string[bytes] = '\0';
        words.push_back(word(string.get()));
    }
};

// The arguments that a format takes, and not one more.
arguments arguments_for(const std::string& format, input& in)
{
    arguments made;
    const char* next = format.c_str();
    while (*next != '\0') {
        if (*next++ != '%')
            continue;
        bool any_long = false, has_period = false, has_star = false;
        i32 precision = 0;  // 0 also where it is not simply given
        for (; *next != '\0' && std::strchr("#-0123456789.*lL", *next) != nullptr; ++next) {
            any_long |= *next == 'l' || *next == 'L';
            has_period |= *next == '.';
            if (*next == '*') {
                made.words.push_back(static_cast<u32>(in.number<std::int16_t>()));
                precision = has_period ? static_cast<i32>(made.words.back()) : 0;
                has_star = has_period;
            } else if (has_period && *next >= '0' && *next <= '9') {
                precision = has_star ? 0 : std::min(precision * 10 + (*next - '0'), 1000);
            }
        }
        const bool known = *next != '\0' && std::strchr("diwuoxXpc", *next) != nullptr;
        if (*next == 's' && in.below(8) == 0)
            made.words.push_back(0);
        else if (*next == 's')
            made.add_string(in, precision);
        else if (known || (any_long && *next != '%'))
            made.words.push_back(in.number<u32>());
        if (*next != '\0')
            ++next;
    }
    made.words.shrink_to_fit();
    return made;
}

struct printed {
    i32 count;  // of the characters, without those that a cut adds
    std::string text;
};

bool is_untouched(const char* buffer, i32 bytes)
{
    return std::all_of(buffer - 1, buffer + bytes, [](char c) { return c == UNTOUCHED; });
}

// Prints with a limit that is as good as none.
printed print_whole(const char* format, const u32* args)
{
    char* buffer = guarded(MOST);
    const i32 count = t_print_args(buffer, MOST, format, args);
    demand(count >= 0 && count < MOST && buffer[count] == '\0', "the text ends within its limit");
    const i32 kept = count > MOST - RESERVE ? count - 2 : count;
    return {kept, {buffer, buffer + kept}};
}

void check_limited(const char* format, const u32* args, i32 limit, const printed& whole)
{
    char* buffer = guarded(std::max(limit, 0));
    const i32 count = t_print_args(buffer, limit, format, args);
    demand(buffer[-1] == UNTOUCHED, "nothing is written in front of the buffer");
    if (limit < 0)
        return demand(count == 0 && is_untouched(buffer, 0), "a negative limit writes nothing");
    if (limit <= 3)
        return demand(count == 0 && std::all_of(buffer, buffer + limit, [](char c) { return c == '\0'; }), "all bytes are zero");
    // A format that prints nothing is cut or not, as it has a conversion or none.
    const bool is_cut = whole.count > limit - RESERVE && (whole.count != 0 || buffer[0] == '\n');
    if (!is_cut) {
        demand(count == whole.count && buffer[count] == '\0', "the result is the length of the text");
        return demand(whole.text == std::string_view(buffer, static_cast<u32>(count)), "a text that has room is whole");
    }
    const i32 kept = count - 2;
    demand(kept >= 0 && kept > limit - RESERVE && kept <= limit - 3 && kept <= whole.count, "a text is cut near its limit");
    demand(whole.text.starts_with(std::string_view(buffer, static_cast<u32>(kept))), "what is kept is the start of the text");
    demand(std::memcmp(buffer + kept, "\n\0", 3) == 0, "a newline and two zero bytes end it");
}

void any_format(input& in)
{
    const i32 limit = in.below(8) == 0 ? in.number<std::int16_t>() : static_cast<i32>(in.below(256));
    const u32 format_bytes = in.below(128);
    const std::string raw = in.text(format_bytes);
    const std::string format = raw.c_str();
    const std::unique_ptr<char[]> own{new char[format.size() + 1]};
    std::copy_n(format.c_str(), format.size() + 1, own.get());
    const arguments args = arguments_for(format, in);

    const printed whole = print_whole(own.get(), args.words.data());
    if (limit != 0)
        return check_limited(own.get(), args.words.data(), limit, whole);
    if (whole.count > MOST - RESERVE)
        return;
    char* buffer = guarded(whole.count + 1);
    demand(t_print_args(buffer, 0, own.get(), args.words.data()) == whole.count, "without a limit the text is the same");
    demand(whole.text == std::string_view(buffer, whole.text.size()) && buffer[whole.count] == '\0', "and so are its characters");
}

// One conversion that both print alike.
std::string shared_conversion(input& in, arguments& args)
{
    constexpr std::string_view conversions = "diuoXsdiuoXsc%";
    const char conversion = in.one_of(conversions);
    if (conversion == '%' || conversion == 'c') {
        if (conversion == 'c')
            args.words.push_back(in.number<u32>());
        return {'%', conversion};
    }
    const u32 choices = in.number<u8>();
    const bool is_unsigned = conversion == 'u' || conversion == 'o' || conversion == 'X';
    std::string format = "%";
    const auto add_number = [&](bool star, u32 value) {
        format += star ? "*" : std::to_string(value);
        if (star)
            args.words.push_back(value);
    };
    if ((choices & 1) != 0)
        format += '-';
    else if ((choices & 2) != 0 && is_unsigned && (choices & 8) == 0)
        format += '0';
    if ((choices & 4) != 0)
        add_number((choices & 16) != 0, 1 + in.below(60));
    u32 precision = 0;
    if ((choices & 8) != 0) {
        precision = 1 + in.below(60);
        format += '.';
        add_number((choices & 32) != 0, precision);
    }
    if (conversion == 's')
        args.add_string(in, static_cast<i32>(precision));
    else
        args.words.push_back(in.number<u32>());
    if ((choices & 64) != 0 && conversion != 's')
        format += 'l';
    return format + conversion;
}

void shared_format(input& in)
{
    arguments args;
    std::string format;
    for (u32 parts = 1 + in.below(4); parts != 0; --parts) {
        for (const char c : in.text(in.below(6)))
            format += c == '%' || c == '\0' ? '.' : c;
        format += shared_conversion(in, args);
    }
    args.words.resize(12);
    const u32* w = args.words.data();
    char expected[1024];
    char* buffer = guarded(sizeof expected);
    const i32 length = std::snprintf(expected, sizeof expected, format.c_str(), w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7],
                                     w[8], w[9], w[10], w[11]);
    const auto is_same = [&](i32 count) {
        return count == length && std::memcmp(buffer, expected, static_cast<u32>(length) + 1) == 0;
    };
    demand(is_same(t_print_args(buffer, sizeof expected, format.c_str(), w)), "the C library prints the same");
    demand(is_same(t_sprintf(buffer, format.c_str(), w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], w[8], w[9], w[10], w[11])),
           "arguments one by one print the same");
    demand(is_same(nb_sprintf(buffer, format.c_str(), w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], w[8], w[9], w[10], w[11])),
           "nb_sprintf is the C library's");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t bytes)
{
    input in(data, bytes);
    if (in.below(2) == 0)
        any_format(in);
    else
        shared_format(in);
    return 0;
}
