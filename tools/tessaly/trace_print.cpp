// The trace in words: the summary and the list. The foreign text in them has passed the parser's `printable`.
#include "tools/tessaly/trace_print.h"

#include "tools/tessaly/code_texts.h"
#include "tools/tessaly/terminal.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>

namespace tessaly::tool::trace {

namespace {

using json = nlohmann::ordered_json;

struct verb_totals {
    std::size_t count = 0;
    std::map<std::string, std::size_t> results;
    std::vector<std::int64_t> times_us;  // sorted in the end

    std::int64_t at(std::size_t percent) const
    {
        return times_us.empty() ? NEVER : times_us[(times_us.size() * percent + 99) / 100 - 1];  // nearest rank
    }
};

constexpr char NO_RESPONSE[] = "no response";

std::map<std::string, verb_totals> totals_of(const story& of, const filter& which)
{
    std::map<std::string, verb_totals> totals;
    for (const verb_run& verb : of.verbs) {
        if (!which.passes(of, verb))
            continue;
        verb_totals& sum = totals[verb.verb];
        ++sum.count;
        ++sum.results[verb.has_ended() ? verb.result : NO_RESPONSE];
        if (verb.opcode != 0 && verb.has_ended() && verb.start_us != NEVER)
            sum.times_us.push_back(std::max<std::int64_t>(0, verb.end_us - verb.start_us));
    }
    for (auto& [verb, sum] : totals)
        std::ranges::sort(sum.times_us);
    return totals;
}

std::string results_of(const verb_totals& sum)
{
    std::string text;
    for (const auto& [result, count] : sum.results)
        text += (text.empty() ? "" : ", ") + result + (sum.results.size() > 1 ? " " + std::to_string(count) : "");
    return text;
}

std::string data_preview(const verb_run& verb)
{
    constexpr std::size_t SHOWN = 40;
    const auto letters = [](const std::string& text) {
        return std::ranges::count_if(text, [](unsigned char c) { return std::isalnum(c); });
    };
    const std::string ascii = printable(verb.data, verb.data.size());
    const std::string& text = letters(ascii) >= letters(verb.data_in_ebcdic) ? ascii : verb.data_in_ebcdic;
    return text.substr(0, SHOWN) + (verb.data_bytes > SHOWN ? "..." : "");
}

json as_json(const story& of, const verb_run& verb)
{
    const tp& on = of.tps[verb.tp];
    json made = {{"line", verb.line}, {"verb", verb.verb}, {"process", verb.process}, {"thread", verb.thread}};
    made["start"] = verb.start_us != NEVER ? json(time_of(verb.start_us)) : json();
    made["end"] = verb.has_ended() ? json(time_of(verb.end_us)) : json();
    made["microseconds"] = verb.has_ended() && verb.start_us != NEVER ? json(verb.end_us - verb.start_us) : json();
    made["result"] = verb.has_ended() ? json(verb.result) : json();
    made["secondary"] = verb.secondary;
    made["tp"] = on.id.empty() ? json() : json(on.number());
    made["tp_name"] = on.name;
    made["conversation"] = verb.conversation;
    made["data_bytes"] = verb.data_bytes;
    if (verb.data_bytes != 0)
        made["data"] = data_preview(verb);
    return made;
}

}  // namespace

std::string duration(std::int64_t us)
{
    if (us < 1000)
        return text_of("%lld us", static_cast<long long>(us));
    const double number = static_cast<double>(us);
    return us < 1'000'000 ? text_of("%.2f ms", number / 1e3) : text_of("%.2f s", number / 1e6);
}

std::string time_of(std::int64_t us)
{
    using namespace std::chrono;
    const sys_time<microseconds> time{microseconds(us)};
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    return text_of("%04d-%02u-%02u %02d:%02d:%02d.%06lld", int{date.year()}, unsigned{date.month()},
                   unsigned{date.day()}, static_cast<int>(clock.hours().count()),
                   static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
                   static_cast<long long>(clock.subseconds().count()));
}

std::string summary(const story& of, const filter& which, bool as_document)
{
    const auto totals = totals_of(of, which);
    if (as_document) {
        json verbs = json::array();
        for (const auto& [verb, sum] : totals) {
            const auto time = [&](std::size_t percent) {
                return sum.times_us.empty() ? json() : json(sum.at(percent));
            };
            verbs.push_back({{"verb", verb},
                             {"count", sum.count},
                             {"results", sum.results},
                             {"median_us", time(50)},
                             {"p99_us", time(99)}});
        }
        return json{{"verbs", verbs}}.dump(2) + "\n";
    }
    std::string text = text_of("%-26s %8s %10s %10s  %s\n", "VERB", "COUNT", "MEDIAN", "P99", "RESULTS");
    for (const auto& [verb, sum] : totals) {
        const auto time = [&](std::size_t percent) { return sum.times_us.empty() ? "-" : duration(sum.at(percent)); };
        text += text_of("%-26s %8zu %10s %10s  ", verb.c_str(), sum.count, time(50).c_str(), time(99).c_str());
        text += results_of(sum) + "\n";
    }
    return text;
}

std::string line_of(const story& of, const verb_run& verb, bool as_object)
{
    if (as_object)
        return as_json(of, verb).dump() + "\n";
    const tp& on = of.tps[verb.tp];
    const bool timed = verb.has_ended() && verb.start_us != NEVER && verb.opcode != 0;
    std::string text = time_of(verb.first_us()).substr(11) +
                       text_of("  %-6u %-12s %-24s", verb.process, on.label().c_str(), verb.verb.c_str());
    text += text_of(" %10s  ", timed ? duration(verb.end_us - verb.start_us).c_str() : "-");
    text += verb.has_ended() ? verb.result : NO_RESPONSE;
    if (verb.is_error() && verb.secondary != 0)
        text += " / " + name_of(code_kind::secondary, verb.secondary);
    if (verb.conversation != 0)
        text += text_of("  conversation %u", verb.conversation);
    if (verb.data_bytes != 0)
        text += text_of("  %zu bytes \"", verb.data_bytes) + data_preview(verb) + '"';
    return text + "\n";
}

}  // namespace tessaly::tool::trace
