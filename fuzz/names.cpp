// The operations on SNA names, with any bytes in fields of exactly their width, held against slow and obvious models.
#include "common/ebcdic.h"
#include "fuzz/input.h"
#include "runtime/node_runtime.h"

#include <tessaly/names.h>

using namespace tessaly;
using namespace tessaly::fuzz;

namespace {

constexpr char BLANK = '\x40', PERIOD = '\x4B';
constexpr u8 NAME_CLASS = 8;

// What is no character of a name stays different from all that are.
u8 to_local(u8 byte)
{
    static const std::vector<u8> table = [] {
        std::vector<u8> local(256);
        for (u32 each = 0; each < 256; ++each)
            local[each] = static_cast<u8>(0x80 | each);
        for (u32 c = 1; c < 128; ++c)
            if (AE_table[c] != 0)
                local[AE_table[c]] = static_cast<u8>(c);
        return local;
    }();
    return table[byte];
}

// Class 8 is that of names; the others are made up.
bool belongs_to(u8 char_class, u8 byte)
{
    static const std::string named = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789$#@";
    if (char_class != NAME_CLASS)
        return (byte ^ char_class) % 5 != 0;
    return named.find(static_cast<char>(to_local(byte))) != std::string::npos;
}

bool is_good(u8 char_class, const std::string& name)
{
    return std::all_of(name.begin(), name.end(), [=](char c) { return belongs_to(char_class, static_cast<u8>(c)); });
}

}  // namespace

extern "C" void nba_ebcdic_to_local(uint8_t* bytes, uint32_t count)
{
    std::transform(bytes, bytes + count, bytes, to_local);
}

extern "C" uint16_t nba_check_ebcdic(uint8_t char_class, const uint8_t* bytes, uint16_t count)
{
    return is_good(char_class, {bytes, bytes + count}) ? 0x0100 : 0;
}

namespace {

// Names that differ in few places compare in more interesting ways than any two. Most of their bytes are those of names.
std::string name_field(input& in, u32 width, const std::string& like)
{
    const u32 kind = in.below(4);
    std::string field = kind == 0 ? like : std::string(width, BLANK);
    field.resize(width, BLANK);
    if (kind == 1) {
        in.fill(field.data(), width);
        return field;
    }
    const u32 characters = in.below(width + 1);
    for (u32 i = 0; i < (kind == 0 ? 2 : characters); ++i) {
        static const std::string alphabet = std::string("\xC1\xC2\xE9\xF0\xF9\x5B\x7B\x7C\x81", 9) + BLANK + PERIOD;
        field[kind == 0 ? in.below(width) : i] = in.one_of(alphabet);
    }
    return field;
}

const ntl_u8* in_bytes(const std::vector<u8>& field) { return field.data(); }
std::vector<u8> exactly(const std::string& field) { return {field.begin(), field.end()}; }

i32 sign(i32 order) { return (order > 0) - (order < 0); }

i32 by_bytes(const std::string& a, const std::string& b)
{
    for (u32 i = 0; i < a.size(); ++i)
        if (a[i] != b[i])
            return static_cast<u8>(a[i]) < static_cast<u8>(b[i]) ? -1 : 1;
    return 0;
}

std::string local(std::string name)
{
    for (char& c : name)
        c = static_cast<char>(to_local(static_cast<u8>(c)));
    return name;
}

enum class order : u8 { plain, mib, mib_full_when_empty, mib_ascii };

i32 model_order(order kind, const std::string& a, const std::string& b)
{
    if (kind == order::plain)
        return by_bytes(a, b);
    const auto length = [kind](const std::string& name) {
        const i32 counted = static_cast<i32>(std::min(name.find(kind == order::mib_ascii ? ' ' : BLANK), name.size()));
        return counted == 0 && kind == order::mib_full_when_empty ? static_cast<i32>(name.size()) : counted;
    };
    if (length(a) != length(b))
        return length(a) - length(b);
    return kind == order::mib_ascii ? by_bytes(a, b) : by_bytes(local(a), local(b));
}

void check_comparisons(input& in)
{
    // clang-format off
    static constexpr struct { ntl_i32 (*compare)(const ntl_u8*, const ntl_u8*); u32 width; order kind; } operations[] = {
        {ntl_compare_proc_id, 4, order::plain},               {ntl_compare_name, 8, order::plain},
        {ntl_compare_fq_name, 17, order::plain},              {ntl_compare_tp_name, 64, order::plain},
        {ntl_compare_mib_ascii_sna_name, 8, order::mib_ascii}, {ntl_compare_mib_sna_name, 8, order::mib_full_when_empty},
        {ntl_compare_mib_fq_name, 17, order::mib},            {ntl_compare_mib_tp_name, 64, order::mib},
    };
    // clang-format on
    const std::string first = name_field(in, 64, ""), second = name_field(in, 64, first);
    for (const auto& [compare, width, kind] : operations) {
        const bool ascii = kind == order::mib_ascii;
        const std::string a = ascii ? local(first.substr(0, width)) : first.substr(0, width);
        const std::string b = ascii ? local(second.substr(0, width)) : second.substr(0, width);
        const std::vector<u8> left = exactly(a), right = exactly(b);
        const i32 result = compare(in_bytes(left), in_bytes(right));
        demand(result == model_order(kind, a, b), "names are in the order of the model");
        demand(compare(in_bytes(right), in_bytes(left)) == -result, "the order is the same from both sides");
        demand(compare(in_bytes(left), in_bytes(exactly(a))) == 0, "a name equals itself");
    }

    ntl_fqpcid left{}, right{};
    const std::string a = first.substr(0, 17), b = second.substr(0, 17);
    std::copy(a.begin(), a.end(), left.fq_name);
    std::copy(b.begin(), b.end(), right.fq_name);
    in.fill(left.id, 8);
    std::copy_n(left.id, 8, right.id);
    right.id[in.below(8)] = in.number<u8>();
    const i32 by_name = model_order(order::mib, a, b);
    demand(ntl_compare_fqpcid(&left, &right) == (by_name != 0 ? by_name : sign(std::memcmp(left.id, right.id, 8))),
           "identifiers are in the order of their names, then of their numbers");

    const ntl_lfsid one{in.number<u16>(), in.number<u16>()}, other{in.number<u16>(), in.below(2) ? one.second : in.number<u16>()};
    demand(ntl_compare_lfsid(&one, &other) == (one.second != other.second ? one.second - other.second : one.first - other.first),
           "the second field of a session identifier decides");
    demand(ntl_compare_byte(left.id, right.id) == left.id[0] - right.id[0], "bytes differ by their difference");
}

struct parts {
    u32 result;
    std::string network_id, name;  // when the result is good
};

std::string padded(std::string text, std::size_t width)
{
    text.resize(width, BLANK);
    return text;
}

parts model_parts(const std::string& fq_name)
{
    const std::size_t period = fq_name.find(PERIOD);
    std::string id, rest = fq_name;
    if (period != std::string::npos) {
        id = fq_name.substr(0, period);
        rest = fq_name.substr(period + 1);
        if (id.size() > 8)
            return {NTL_FQ_NETID_TOO_LONG, {}, {}};
        if (id.empty())
            return {NTL_FQ_NETID_EMPTY, {}, {}};
        if (!is_good(NAME_CLASS, id))
            return {NTL_FQ_NETID_BAD_CHAR, {}, {}};
    }
    const std::string name = rest.substr(0, rest.find(BLANK));
    if (name.size() > 8)
        return {NTL_FQ_NAME_TOO_LONG, {}, {}};
    if (name.empty())
        return {NTL_FQ_NAME_EMPTY, {}, {}};
    if (!is_good(NAME_CLASS, name))
        return {NTL_FQ_NAME_BAD_CHAR, {}, {}};
    if (rest.find_first_not_of(BLANK, name.size()) != std::string::npos)
        return {NTL_FQ_TRAILING_TEXT, {}, {}};
    if (period == std::string::npos)
        return {NTL_FQ_UNQUALIFIED, std::string(8, '\0'), padded(name, 8)};
    return {NTL_FQ_QUALIFIED, padded(id, 8), padded(name, 8)};
}

// Splits, and holds the outputs against the model. Result: as the operation gives it.
u32 check_split(const std::string& fq_name)
{
    parts expected = model_parts(fq_name);
    if (expected.name.empty())
        expected.network_id = expected.name = std::string(8, '\0');
    const std::vector<u8> own = exactly(fq_name);
    std::vector<u8> network_id(8, 0xEE), name(8, 0xEE);
    const u32 result = ntl_split_fq_name(own.data(), network_id.data(), name.data());
    demand(result == expected.result && ntl_check_fq_name(own.data()) == result, "the result is that of the model");
    demand(network_id == exactly(expected.network_id) && name == exactly(expected.name), "the parts are those of the model");
    return result;
}

std::string made_of(const std::string& network_id, const std::string& name)
{
    std::vector<u8> made(17, 0xEE);
    ntl_make_fq_name(exactly(network_id).data(), exactly(name).data(), made.data());
    return {made.begin(), made.end()};
}

void check_parts(input& in)
{
    const std::string fq_name = name_field(in, 17, "");
    const std::string network_id = name_field(in, 8, fq_name), name = name_field(in, 8, network_id);
    check_split(fq_name);

    const std::string made = made_of(network_id, name), id = network_id.substr(0, network_id.find(BLANK));
    demand(made == padded(id + PERIOD + name, 17), "a name is made of network ID, period and name");
    const bool sound = is_good(NAME_CLASS, id) && !id.empty() && model_parts(padded(name, 17)).result == NTL_FQ_UNQUALIFIED;
    const u32 result = check_split(made);
    const parts apart = model_parts(made);
    demand(!sound || (result == NTL_FQ_QUALIFIED && apart.network_id == padded(id, 8) && apart.name == name),
           "splitting gives back what a name was made of");

    std::vector<u8> changed(17, 0xEE);
    ntl_change_local_name(exactly(fq_name).data(), exactly(name).data(), changed.data());
    const std::size_t period = fq_name.find(PERIOD);
    const std::string expected = period == std::string::npos ? padded(name, 17)
                                 : period > 8                ? std::string(17, '\0')
                                                             : padded(fq_name.substr(0, period + 1) + name, 17);
    demand(changed == exactly(expected), "the local name alone is changed");
}

void check_lengths(input& in)
{
    const u32 width = in.below(4) == 0 ? in.number<u16>() % 1000 : in.below(20);
    const std::string field = width == 0 ? "" : name_field(in, std::min(width, 255u), "").append(width, BLANK).substr(0, width);
    const std::vector<u8> own = exactly(field);
    demand(ntl_name_length(own.data(), static_cast<u16>(width)) == std::min<std::size_t>(field.find(BLANK), width),
           "a name's length ends at its first blank");

    const u8 char_class = in.below(2) == 0 ? NAME_CLASS : in.number<u8>();
    const std::string used = field.substr(0, field.find_last_not_of(BLANK) + 1);
    const u32 checked = used.empty() ? 1 : nba_check_ebcdic(char_class, exactly(used).data(), static_cast<u16>(used.size()));
    demand(ntl_check_name(char_class, own.data(), static_cast<u16>(width)) == checked, "a name is checked without its blanks");

    std::string squeezed = field;
    std::erase(squeezed, BLANK);
    std::vector<u8> output(in.below(40), 0xEE);
    ntl_make_internal_name(output.data(), static_cast<u16>(output.size()), own.data(), static_cast<u16>(width));
    demand(output == exactly(padded(squeezed, output.size())), "an internal name is the input without its blanks");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t bytes)
{
    input in(data, bytes);
    check_comparisons(in);
    check_parts(in);
    check_lengths(in);
    demand(std::all_of(std::begin(null_name), std::end(null_name), [](u8 byte) { return byte == 0; }), "null_name stays zeros");
    return 0;
}
