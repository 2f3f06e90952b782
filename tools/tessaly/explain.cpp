// explain: what return codes mean, by number or by name.
#include "tools/tessaly/code_texts.h"
#include "tools/tessaly/commands.h"

#include "common/edit_distance.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

namespace tessaly::tool {

namespace {

struct number {
    u32 value;
    bool wide;  // more than four hexadecimal digits: a secondary code, whatever the value
};

// 0x and hexadecimal digits, or decimal ones.
std::optional<number> read_number(std::string_view text)
{
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = text.substr(hexadecimal ? 2 : 0);
    u32 value = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, hexadecimal ? 16 : 10);
    if (error != std::errc{} || end != digits.data() + digits.size())
        return std::nullopt;
    return number{value, value > 0xFFFF || (hexadecimal && digits.size() > 4)};
}

// As in the table: capital letters, without the prefixes that appc.h gives.
std::string plain_name(std::string_view text)
{
    std::string name(text);
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    for (const std::string_view prefix : {"APPC_", "SEC_"})
        if (name.starts_with(prefix))
            name.erase(0, prefix.size());
    return name;
}

std::string digits_of(code_kind kind, u32 value)
{
    return text_of(kind == code_kind::primary ? "%04X" : "%08X", value);
}

u32 bytes_exchanged(code_kind kind, u32 value)
{
    return kind == code_kind::primary ? (value >> 8 & 0xFF) | (value & 0xFF) << 8 : __builtin_bswap32(value);
}

// Who reads a code as it lies in memory has its bytes the other way round; otherwise digits or letters are mistyped.
const explained_code& nearest(std::string_view text, const std::optional<number>& value)
{
    const auto effort = [&](const explained_code& code) -> std::size_t {
        if (!value)
            return edit_distance(plain_name(text), code.name);
        if (code.kind == code_kind::primary && value->wide)
            return std::string_view::npos;
        if (code.value == bytes_exchanged(code.kind, value->value))
            return 0;
        return edit_distance(digits_of(code.kind, value->value), digits_of(code.kind, code.value));
    };
    return *std::ranges::min_element(all_codes(), {}, effort);
}

void print(const explained_code& code, std::FILE* out)
{
    const bool primary = code.kind == code_kind::primary;
    std::fprintf(out, "%s 0x%s, %s return code\n    %s\n    %s\n", code.name, digits_of(code.kind, code.value).c_str(),
                 primary ? "primary" : "secondary", code.meaning, code.next_step);
}

// Result: whether there is such a code.
bool explain_one(const std::string& text, std::FILE* out)
{
    const auto value = read_number(text);
    if (value && value->wide && value->value == SEC_NONE) {
        std::fprintf(out, "0x00000000, no secondary return code: the primary one says it all\n");
        return true;
    }
    bool known = false;
    for (const explained_code& code : all_codes()) {
        const bool named = !value && plain_name(text) == code.name;
        const bool numbered =
            value && code.value == value->value && (code.kind == code_kind::secondary || !value->wide);
        if (named || numbered)
            print(code, out);
        known = known || named || numbered;
    }
    return known;
}

}  // namespace

ending explain(const std::vector<std::string>& codes, std::FILE* out)
{
    ending end;
    for (const std::string& text : codes) {
        if (explain_one(text, out))
            continue;
        const auto value = read_number(text);
        const explained_code& meant = nearest(text, value);
        end.code = EXIT_USAGE;
        end.message += (end.message.empty() ? "" : "\n") + printable(text, 40) + " is no return code.";
        if (value || may_mean(plain_name(text), meant.name))
            end.message += " Did you mean " + name_of(meant.kind, meant.value) + "?";
    }
    return end;
}

}  // namespace tessaly::tool
