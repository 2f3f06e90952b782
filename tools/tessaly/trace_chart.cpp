// The sequence chart: a lane for each TP, time downwards. Every request and response has a row of its own, so that what took
// microseconds is as legible as what took seconds; a response that directly follows its request shares its row. Longer pauses are
// marked. Arrows begin and end below the labels, which stand at the right of the bars. All text goes through `escaped`.
#include "tools/tessaly/trace_print.h"

#include "tools/tessaly/code_texts.h"
#include "tools/tessaly/terminal.h"
#include "tools/tessaly/trace_style.h"

#include <algorithm>

namespace tessaly::tool::trace {

namespace {

constexpr int LEFT = 128, LANE = 290, HEADER = 62, ROW = 25, PAUSE = 26, TOP = 22, NEST = 11, BAR = 10, UNDER = 10,
              LABELS = 170;
constexpr std::int64_t LONG_PAUSE_US = 20'000;
constexpr std::size_t NONE = static_cast<std::size_t>(-1);

struct placed {
    std::size_t lane = NONE;
    int depth = 0;             // beside how many verbs of its lane it runs
    int from_y = 0, to_y = 0;  // equal: in one row
    bool shown() const { return lane != NONE; }
};

struct event {
    std::int64_t time_us;
    std::size_t verb;
    bool ends;
};

const char* name_of(flow_kind kind)
{
    switch (kind) {
    case flow_kind::attach: return "attach";
    case flow_kind::data: return "data";
    case flow_kind::turn: return "turn";
    case flow_kind::confirm: return "confirm?";
    case flow_kind::confirmed: return "confirmed";
    case flow_kind::error: return "error";
    case flow_kind::end: return "end";
    }
    return "";
}

std::string printable_text(const std::string& bytes)
{
    return printable(bytes, bytes.size());
}

class drawing {
public:
    drawing(const story& of, const chart_options& options) : of_(of), options_(options), places_(of.verbs.size()) {}

    chart draw(chart_for use)
    {
        html_ = use == chart_for::html_page;
        choose();
        place_rows();
        draw_flows();
        for (std::size_t i = 0; i < places_.size(); ++i)
            if (places_[i].shown())
                draw_verb(i);
        const int width = LEFT + LANE * std::max(1, static_cast<int>(lanes_.size()));
        const int height = bottom_ + ROW;
        for (std::size_t lane = 0; lane < lanes_.size(); ++lane)
            lines_ += text_of("<line class=\"lane\" x1=\"%d\" x2=\"%d\" y1=\"0\" y2=\"%d\"/>", x_of(lane), x_of(lane),
                              height);
        const std::string body = lines_ + arrows_ + verbs_;
        result_.svg = html_ ? opened(width, HEADER, "head") + headers() + "</svg>" + opened(width, height, "body") +
                                  MARKERS + body + "</svg>\n"
                            : opened(width, HEADER + height, "whole") + "<style>" + std::string(STYLE) + "</style>" +
                                  MARKERS + "<rect class=\"paper\" width=\"100%\" height=\"100%\"/>" + headers() +
                                  text_of("<g transform=\"translate(0 %d)\">", HEADER) + body + "</g></svg>\n";
        return std::move(result_);
    }

private:
    static std::string opened(int width, int height, const char* part)
    {
        return text_of("<svg xmlns=\"http://www.w3.org/2000/svg\" class=\"%s\" width=\"%d\" height=\"%d\" viewBox=\"0 "
                       "0 %d %d\">\n",
                       part, width, height, width, height);
    }

    static int x_of(std::size_t lane) { return LEFT + 24 + LANE * static_cast<int>(lane); }

    void choose()
    {
        std::vector<std::size_t> lane_of(of_.tps.size(), NONE);
        for (std::size_t i = 0; i < of_.verbs.size(); ++i) {
            const verb_run& verb = of_.verbs[i];
            if (!options_.which.passes(of_, verb))
                continue;
            if (result_.shown == options_.limit) {
                ++result_.left_out;
                continue;
            }
            ++result_.shown;
            if (lane_of[verb.tp] == NONE) {
                lane_of[verb.tp] = lanes_.size();
                lanes_.push_back(verb.tp);
            }
            places_[i].lane = lane_of[verb.tp];
            if (verb.start_us != NEVER)
                events_.push_back({verb.start_us, i, false});
            if (verb.has_ended() && verb.opcode != 0)
                events_.push_back({verb.end_us, i, true});
        }
        std::ranges::stable_sort(events_, {}, &event::time_us);
    }

    void place_rows()
    {
        int y = TOP;
        std::int64_t last_us = events_.empty() ? 0 : events_.front().time_us;
        const std::int64_t first_us = last_us;
        std::vector<std::vector<std::size_t>> running(lanes_.size());  // NONE: a free place
        std::size_t row_of = NONE;
        for (const event& each : events_) {
            placed& at = places_[each.verb];
            const bool shares = each.ends && row_of == each.verb;
            if (each.time_us - last_us >= LONG_PAUSE_US) {
                if (!shares)
                    y += ROW;
                lines_ += text_of("<line class=\"pause\" x1=\"%d\" x2=\"100%%\" y1=\"%d\" y2=\"%d\"/><text "
                                  "class=\"pause\" x=\"%d\" y=\"%d\">%s</text>",
                                  LEFT, y, y, LEFT - 12, y + 4, duration(each.time_us - last_us).c_str());
                y += PAUSE;
            } else if (!shares && (row_of != NONE || &each != &events_.front())) {
                y += ROW;
            }
            if (!shares || each.time_us - last_us >= LONG_PAUSE_US)
                lines_ += text_of("<text class=\"time\" x=\"%d\" y=\"%d\">%.3f</text><line class=\"row\" x1=\"%d\" "
                                  "x2=\"100%%\" y1=\"%d\" y2=\"%d\"/>",
                                  LEFT - 12, y + 4, static_cast<double>(each.time_us - first_us) / 1e3, LEFT, y, y);
            last_us = each.time_us;
            row_of = each.verb;
            auto& slots = running[at.lane];
            if (!each.ends || of_.verbs[each.verb].start_us == NEVER) {
                const auto free = std::ranges::find(slots, NONE);
                at.depth = static_cast<int>(free - slots.begin());
                free == slots.end() ? slots.push_back(each.verb) : void(*free = each.verb);
                at.from_y = y;
            }
            at.to_y = y;
            if (each.ends || of_.verbs[each.verb].opcode == 0)
                std::ranges::replace(slots, each.verb, NONE);
        }
        bottom_ = y;
    }

    std::string headers() const
    {
        std::string text = text_of("<text class=\"unit\" x=\"%d\" y=\"44\">ms</text>", LEFT - 12);
        for (std::size_t lane = 0; lane < lanes_.size(); ++lane) {
            const tp& on = of_.tps[lanes_[lane]];
            const std::string lu = on.lu.empty() ? "" : " \u00B7 LU " + on.lu;
            text += text_of("<g class=\"tp\"><rect x=\"%d\" y=\"10\" width=\"%d\" height=\"44\" rx=\"8\"/><text "
                            "class=\"name\" x=\"%d\" y=\"29\">",
                            x_of(lane) - 16, LANE - 24, x_of(lane) - 4);
            text += escaped(printable(on.label(), 26));
            text += text_of("</text><text class=\"of\" x=\"%d\" y=\"45\">process %u", x_of(lane) - 4, on.process);
            text += escaped(printable_text(on.id.empty() ? "" : text_of(", TP %u", on.number()))) + escaped(lu) +
                    "</text></g>\n";
        }
        return text;
    }

    // Everything about a verb, for whoever points at it.
    std::string details(const verb_run& verb) const
    {
        const tp& on = of_.tps[verb.tp];
        std::string text = verb.verb + "\n" + (verb.has_ended() ? verb.result : "no response in the trace");
        if (verb.is_error() && verb.secondary != 0)
            text += " / " + tool::name_of(code_kind::secondary, verb.secondary);
        text += text_of("\nTP %s, process %u, thread %u", on.label().c_str(), verb.process, verb.thread);
        if (verb.conversation != 0)
            text += text_of("\nconversation %u", verb.conversation);
        if (verb.start_us != NEVER)
            text += "\nissued " + time_of(verb.start_us) + " UTC";
        if (verb.has_ended() && verb.start_us != NEVER && verb.opcode != 0)
            text += "\ntook " + duration(verb.end_us - verb.start_us);
        if (verb.data_bytes != 0) {
            text += text_of("\n%zu bytes", verb.data_bytes);
            const std::string ascii = printable_text(verb.data);
            for (std::size_t at = 0; at < ascii.size(); at += 48) {
                text += (at == 0 ? "\nASCII   " : "\n        ") + ascii.substr(at, 48);
                text += "\nEBCDIC  " + (at < verb.data_in_ebcdic.size() ? verb.data_in_ebcdic.substr(at, 48) : "");
            }
        }
        return text + text_of("\nline %zu of the trace", verb.line);
    }

    std::string label(int x, int y, const std::string& strong, const std::string& soft, bool error) const
    {
        std::string text = text_of("<text class=\"%s\" x=\"%d\" y=\"%d\">", error ? "label wrong" : "label", x, y + 4) +
                           escaped(strong);
        if (!soft.empty())
            text += "<tspan class=\"soft\" dx=\"" + std::string(strong.empty() ? "0" : "7") + "\">" + escaped(soft) +
                    "</tspan>";
        return text + "</text>";
    }

    void draw_verb(std::size_t i)
    {
        const verb_run& verb = of_.verbs[i];
        const placed& at = places_[i];
        const int x = x_of(at.lane) + at.depth * NEST;
        const bool waits = !verb.has_ended();
        const int to = waits ? bottom_ : at.to_y;
        const bool one_row = at.from_y == to;
        const std::string bytes = verb.data_bytes != 0 ? text_of("%zu B", verb.data_bytes) : "";
        const std::string time =
            verb.has_ended() && verb.start_us != NEVER && verb.opcode != 0 ? duration(verb.end_us - verb.start_us) : "";
        const std::string outcome = waits || verb.result == "OK" ? "" : verb.result;
        const auto soft = [](std::initializer_list<std::string> parts) {
            std::string text;
            for (const std::string& part : parts)
                text += part.empty() ? "" : (text.empty() ? "" : " \u00B7 ") + part;
            return text;
        };
        const char* kind = waits              ? "open"
                           : verb.is_error()  ? "bad"
                           : verb.opcode == 0 ? "told"
                           : one_row          ? "quick"
                                              : "long";
        verbs_ +=
            text_of("<g class=\"v %s\" data-c=\"%zu\"><rect x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\" rx=\"4\"/>",
                    kind, group_of(verb), x - BAR / 2, at.from_y - 8, BAR, to - at.from_y + 20);
        const int text_x = x + BAR;
        if (one_row) {
            verbs_ += label(text_x, at.from_y, verb.verb, soft({outcome, bytes, time}), verb.is_error());
        } else {
            verbs_ += label(text_x, at.from_y, verb.verb, waits ? "no response" : "", verb.is_error());
            if (!waits)
                verbs_ +=
                    label(text_x, to, "", soft({outcome.empty() ? "\u2713" : outcome, bytes, time}), verb.is_error());
        }
        const char* element = html_ ? "desc" : "title";
        verbs_ += text_of("<%s>", element) + escaped(details(verb)) + text_of("</%s></g>\n", element);
    }

    void draw_flows()
    {
        std::map<std::pair<std::size_t, std::size_t>, std::vector<flow_kind>> by_ends;
        for (const flow& each : find_flows(of_)) {
            if (each.kind == flow_kind::attach)
                join(of_.verbs[each.from], of_.verbs[each.to]);
            if (places_[each.from].shown() && places_[each.to].shown())
                by_ends[{each.from, each.to}].push_back(each.kind);
        }
        for (const auto& [ends, kinds] : by_ends) {
            const placed &from = places_[ends.first], &to = places_[ends.second];
            const bool right = from.lane < to.lane;
            const bool same = from.lane == to.lane;
            const auto has = [&](flow_kind kind) { return std::ranges::count(kinds, kind) != 0; };
            const char* color = has(flow_kind::error) ? "error" : has(flow_kind::data) ? "data" : "control";
            std::string words;  // the bytes of data stand beside the verbs
            for (const flow_kind kind : kinds)
                if (kind != flow_kind::data && words.find(name_of(kind)) == std::string::npos)
                    words += (words.empty() ? "" : ", ") + std::string(name_of(kind));
            const int x1 = x_of(from.lane) + (right || same ? BAR / 2 + from.depth * NEST : -BAR / 2);
            const int x2 = x_of(to.lane) + (right ? -BAR / 2 - 3 : BAR / 2 + 3 + to.depth * NEST);
            const int y1 = from.from_y + UNDER, y2 = std::max(to.to_y, from.from_y) + UNDER;
            arrows_ += text_of("<g class=\"a %s\" data-c=\"%zu\"><path d=\"M%d %d", color,
                               group_of(of_.verbs[ends.first]), x1, y1);
            if (same)
                arrows_ += text_of("C%d %d %d %d %d %d\"/>", x1 + 90, y1, x2 + 90, y2, x2, y2);
            else if (right)  // level below the labels of the left lane, then across
                arrows_ += text_of("H%dC%d %d %d %d %d %d\"/>", x1 + LABELS, x1 + LABELS + 50, y1, x2 - 50, y2, x2, y2);
            else
                arrows_ += text_of("C%d %d %d %d %d %dH%d\"/>", x1 - 50, y1, x2 + LABELS + 50, y2, x2 + LABELS, y2, x2);
            // The room left of a lane is free of verbs' labels.
            arrows_ += text_of("<text x=\"%d\" y=\"%d\">", std::max(x1, x2) - 10, (right ? y2 : y1) - 4);
            arrows_ += escaped(words) + "</text></g>\n";
        }
    }

    // Both sides of a conversation have one number, so that it can be picked out.
    std::size_t group_of(const verb_run& verb)
    {
        if (verb.conversation == 0)
            return 0;
        return groups_.try_emplace({verb.process, verb.conversation}, groups_.size() + 1).first->second;
    }

    void join(const verb_run& one, const verb_run& other)
    {
        const std::size_t group = group_of(one);
        if (group != 0 && other.conversation != 0)
            groups_[{other.process, other.conversation}] = group;
    }

    const story& of_;
    const chart_options& options_;
    bool html_ = false;
    std::vector<placed> places_;
    std::vector<std::size_t> lanes_;
    std::vector<event> events_;
    std::map<std::pair<u32, u32>, std::size_t> groups_;
    int bottom_ = 0;
    std::string lines_, arrows_, verbs_;
    chart result_;
};

}  // namespace

std::string escaped(std::string_view text)
{
    std::string safe;
    safe.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&': safe += "&amp;"; break;
        case '<': safe += "&lt;"; break;
        case '>': safe += "&gt;"; break;
        case '"': safe += "&quot;"; break;
        case '\'': safe += "&#39;"; break;
        default: safe += c;
        }
    }
    return safe;
}

chart draw(const story& of, const chart_options& options, chart_for use)
{
    return drawing(of, options).draw(use);
}

}  // namespace tessaly::tool::trace
