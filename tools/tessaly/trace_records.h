// What stands in a verb trace file: its records, and reading them. Nothing in such a file is believed: lines have a bound,
// numbers are checked, and what is no record is reported with its line and left out.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tessaly::tool::trace {

// Memory as a record shows it. Only the first bytes are kept, of what may be long.
struct dumped {
    std::uint64_t address = 0;
    std::size_t count = 0;  // bytes shown
    std::string bytes;
    std::string in_ebcdic;  // the same, as text
};

enum class record_kind : std::uint8_t { request, response, forget };

struct record {
    record_kind kind{};
    std::size_t line = 0;
    std::int64_t time_us = 0;  // since 1970, UTC
    std::uint32_t process = 0;
    std::uint32_t thread = 0;
    std::string verb;
    std::string result;  // of a response
    dumped block;        // of a forget indication only the address
    dumped data;
    std::uint32_t conversation = 0;  // of a forget indication
    std::string tp_id;               // the same, 8 bytes
};

struct problem {
    std::size_t line;
    std::string text;
};

// Takes the bytes of a file as they come and hands on each record when it is complete.
class parser {
public:
    explicit parser(std::function<void(record&&)> take) : take_(std::move(take)) {}

    void feed(std::string_view bytes);

    // No more bytes for now: the last record is complete as well. Those of the file that is being written are fed afterwards.
    void pause();

    // The file ends here. What it lacks is a problem.
    void end();

    std::size_t records() const { return records_; }
    std::size_t problem_count() const { return problem_count_; }
    const std::vector<problem>& problems() const { return problems_; }  // the first ones

private:
    enum class part : std::uint8_t { none, headline, text, block, data, forget, skipped };

    void take_line(std::string_view line);
    bool begin(std::string_view stamp);
    bool take_text(std::string_view text);
    bool take_forget(std::string_view text);
    bool take_dump(std::string_view line);
    void finish();
    void complain(std::size_t line, std::string text);

    std::function<void(record&&)> take_;
    std::string rest_;  // of a line whose end has not come yet
    bool too_long_ = false;
    std::size_t line_ = 0;
    std::size_t records_ = 0;
    record open_;
    part part_ = part::none;
    bool is_cut_ = false;  // it says itself that it does not show everything
    std::size_t problem_count_ = 0;
    std::vector<problem> problems_;
};

}  // namespace tessaly::tool::trace
