// Reads a verb trace line by line. The layout is the stand-in runtime's, the texts are the library's:
//
//     APPC  ==== 2031-02-03 04:05:06.789012 +0100 [812.815] ====
//     APPC  MC_SEND_DATA response, result = OK
//     APPC  ---- Verb Parameter Block at address 0xff8a0010 ----
//     APPC   0000  0f000100 ...
#include "tools/tessaly/trace_records.h"

#include "tools/tessaly/terminal.h"

#include "verbs/catalogue.h"

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>

namespace tessaly::tool::trace {

namespace {

constexpr std::size_t LONGEST_LINE = 2048;
constexpr std::size_t KEPT_BYTES = 256;
constexpr std::size_t KEPT_PROBLEMS = 5;
constexpr std::string_view TEXT = "APPC  ", DUMP = "APPC   ", STAMP = "APPC  ==== ", CUT = "(the record goes on";
constexpr std::string_view BLOCK_AT = "---- Verb Parameter Block at address ", DATA_AT = "---- Data at address ";

template <typename Number>
std::optional<Number> hexadecimal(std::string_view text)
{
    text.remove_prefix(text.starts_with("0x") ? 2 : 0);
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

// "0xff8a0010 ----"; a null pointer is printed as (nil).
std::optional<std::uint64_t> address_in(std::string_view text)
{
    const std::string_view number = text.substr(0, text.find(' '));
    return number == "(nil)" ? 0 : hexadecimal<std::uint64_t>(number);
}

template <typename Field>
Field field(const dumped& block, std::size_t at)
{
    Field value{};
    if (at + sizeof value <= block.bytes.size())
        std::memcpy(&value, block.bytes.data() + at, sizeof value);
    return value;
}

// How many bytes a record of this block must show of it and of its data.
struct wanted_bytes {
    std::size_t block, data;
};

wanted_bytes wanted(const record& of)
{
    const dumped& block = of.block;
    const verb_row* verb = find_verb(field<u16>(block, 0));
    if (verb == nullptr || verb->trace.bytes == 0)
        return {6, 0};
    const u8 format = field<u8>(block, 3);
    const data_buffer& buffer = verb->trace.buffer(format);
    const u16 entry = verb->trace.entry_bytes;
    u32 length = entry != 0 ? static_cast<u16>(field<u32>(block, buffer.length_at) * entry)
                            : field<u16>(block, buffer.length_at);
    if (buffer.address_at == 0 || (of.kind == record_kind::response && !verb->trace.in_responses))
        length = 0;
    return {verb->trace.block_bytes(field<u8>(block, 2), format), length};
}

}  // namespace

void parser::feed(std::string_view bytes)
{
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        const std::string_view piece = bytes.substr(0, end);
        if (end != std::string_view::npos && rest_.empty() && !too_long_ && piece.size() <= LONGEST_LINE) {
            take_line(piece);
        } else {
            too_long_ = too_long_ || rest_.size() + piece.size() > LONGEST_LINE;
            too_long_ ? rest_.clear() : void(rest_.append(piece));
            if (end != std::string_view::npos) {
                take_line(too_long_ ? std::string_view("(a line of more than 2048 characters)") : rest_);
                rest_.clear();
                too_long_ = false;
            }
        }
        bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
    }
}

void parser::take_line(std::string_view line)
{
    ++line_;
    if (line.starts_with(STAMP)) {
        finish();
        part_ = begin(line.substr(STAMP.size())) ? part::headline : part::skipped;
        if (part_ == part::skipped)
            complain(line_, "no date, time, process and thread: " + printable(line, 60));
        return;
    }
    if (line.empty() || part_ == part::skipped)
        return;
    bool known = false;
    if (line.starts_with(CUT))
        known = is_cut_ = true;
    else if (part_ == part::none)
        known = false;
    else if (line.starts_with(DUMP))
        known = take_dump(line.substr(DUMP.size()));
    else if (line.starts_with(TEXT))
        known = take_text(line.substr(TEXT.size()));
    if (!known) {
        complain(line_, "not of a trace record: " + printable(line, 60));
        part_ = part::skipped;
    }
}

// "2031-02-03 04:05:06.789012 +0100 [812.815] ===="
bool parser::begin(std::string_view stamp)
{
    open_ = {};
    open_.line = line_;
    is_cut_ = false;
    int year{}, month{}, day{}, hour{}, minute{}, second{}, us{}, ahead_h{}, ahead_min{}, end{};
    char sign{};
    const std::string text(stamp.substr(0, 100));
    if (std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d.%6d %c%2d%2d [%9u.%9u] ====%n", &year, &month, &day, &hour,
                    &minute, &second, &us, &sign, &ahead_h, &ahead_min, &open_.process, &open_.thread, &end) != 12 ||
        end == 0)
        return false;
    using namespace std::chrono;
    const year_month_day date = std::chrono::year(year) / month / day;
    const bool in_range = hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && second >= 0 && second < 61 && us >= 0;
    if (!date.ok() || year < 1970 || !in_range || (sign != '+' && sign != '-') || ahead_h < 0 || ahead_min < 0)
        return false;
    const auto ahead = (hours(ahead_h) + minutes(ahead_min)) * (sign == '-' ? -1 : 1);
    const auto time = sys_days(date).time_since_epoch() + hours(hour) + minutes(minute) + seconds(second) - ahead;
    open_.time_us = duration_cast<microseconds>(time).count() + us;
    return true;
}

bool parser::take_text(std::string_view text)
{
    constexpr std::string_view REQUEST = " request", RESPONSE = " response, result = ", FORGET = " indication";
    if (part_ == part::headline) {
        const std::size_t at = text.find(RESPONSE);
        const bool responds = at != std::string_view::npos;
        open_.kind = responds                 ? record_kind::response
                     : text.ends_with(FORGET) ? record_kind::forget
                                              : record_kind::request;
        if (responds)
            open_.result = printable(text.substr(at + RESPONSE.size()), 60);
        const std::string_view end = responds ? text.substr(at) : open_.kind == record_kind::forget ? FORGET : REQUEST;
        if (!text.ends_with(end) || text.size() == end.size())
            return false;
        open_.verb = printable(text.substr(0, text.size() - end.size()), 40);
        part_ = open_.kind == record_kind::forget ? part::forget : part::text;
        return true;
    }
    if (part_ == part::forget)
        return take_forget(text);
    if (text.starts_with("(no ")) {  // memory that could not be shown
        is_cut_ = true;
        return true;
    }
    const bool data = text.starts_with(DATA_AT);
    if (part_ != (data ? part::block : part::text) || (!data && !text.starts_with(BLOCK_AT)))
        return false;
    const auto address = address_in(text.substr((data ? DATA_AT : BLOCK_AT).size()));
    (data ? open_.data : open_.block).address = address.value_or(0);
    part_ = data ? part::data : part::block;
    return address.has_value();
}

bool parser::take_forget(std::string_view text)
{
    constexpr std::size_t VALUE_AT = 30;
    if (text.size() <= VALUE_AT)
        return false;
    const std::string_view value = text.substr(VALUE_AT);
    if (text.starts_with("deallocate vcb")) {
        open_.block.address = address_in(value).value_or(0);
    } else if (text.starts_with("conversation ID:")) {
        open_.conversation = hexadecimal<std::uint32_t>(value).value_or(0);
    } else if (text.starts_with("TP ID:") && value.size() == 17) {
        for (const std::size_t at : {0, 2, 4, 6, 9, 11, 13, 15})
            open_.tp_id += static_cast<char>(hexadecimal<std::uint8_t>(value.substr(at, 2)).value_or(0));
    } else if (text.starts_with("implied forget type:")) {
        open_.result = printable(value, 40);
    } else if (text.starts_with("application callback")) {
        finish();
    }
    return true;
}

// "0010  c1c2c3c4 c5c6     ...  |................| |ABCDEF          |"
bool parser::take_dump(std::string_view line)
{
    constexpr std::size_t BYTES = 16, HEX = 36, ASCII_AT = HEX + 2, EBCDIC_AT = ASCII_AT + BYTES + 3,
                          LINE = EBCDIC_AT + BYTES + 1;
    if (part_ != part::block && part_ != part::data)
        return false;
    dumped& into = part_ == part::block ? open_.block : open_.data;
    const std::size_t blanks = line.find("  ");
    if (blanks == std::string_view::npos || hexadecimal<std::size_t>(line.substr(0, blanks)) != into.count)
        return false;
    line.remove_prefix(blanks + 2);
    if (line.size() != LINE || into.count % BYTES != 0)
        return false;
    std::size_t count = 0;
    for (; count < BYTES; ++count) {
        const std::string_view digits = line.substr(count * 2 + count / 4, 2);
        if (digits == "  ")
            break;
        const auto byte = hexadecimal<std::uint8_t>(digits);
        if (!byte)
            return false;
        if (into.bytes.size() < KEPT_BYTES)
            into.bytes += static_cast<char>(*byte);
    }
    if (into.in_ebcdic.size() < KEPT_BYTES)
        into.in_ebcdic += printable(line.substr(EBCDIC_AT, count));
    into.count += count;
    return count != 0;
}

void parser::finish()
{
    const bool is_open = part_ != part::none && part_ != part::skipped;
    const bool forgets = part_ == part::forget;
    part_ = part::none;
    if (!is_open)
        return;
    const wanted_bytes all = wanted(open_);
    if (!forgets && !is_cut_ && (open_.block.count < all.block || open_.data.count < all.data))
        return complain(
            open_.line,
            text_of("the record breaks off: it shows %zu of %zu bytes of its block and %zu of %zu of its data",
                    open_.block.count, all.block, open_.data.count, all.data));
    ++records_;
    take_(std::move(open_));
}

void parser::pause()
{
    if (!rest_.empty() || too_long_)
        return;
    const wanted_bytes all = wanted(open_);
    if ((part_ == part::block || part_ == part::data) && open_.block.count == all.block && open_.data.count == all.data)
        finish();
}

void parser::end()
{
    if (!rest_.empty() || too_long_) {
        complain(
            line_ + 1,
            "the file ends within a line" +
                (part_ == part::none ? "" : "; its record, from line " + std::to_string(open_.line) + ", is left out"));
        rest_.clear();
        part_ = part::none;
    }
    finish();
}

void parser::complain(std::size_t line, std::string text)
{
    if (++problem_count_ <= KEPT_PROBLEMS)
        problems_.push_back({line, std::move(text)});
}

}  // namespace tessaly::tool::trace
