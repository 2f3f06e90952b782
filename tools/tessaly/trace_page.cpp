// The HTML page around the chart. One file that needs no other, and may load none.
#include "tools/tessaly/terminal.h"
#include "tools/tessaly/trace_print.h"
#include "tools/tessaly/trace_style.h"

#include <algorithm>
#include <set>

namespace tessaly::tool::trace {

std::string page_of(const story& of, const chart_options& options, const chart& picture)
{
    std::size_t errors = 0;
    std::set<u32> processes;
    std::set<std::size_t> tps;
    std::int64_t first = NEVER, last = NEVER;
    for (const verb_run& verb : of.verbs) {
        if (!options.which.passes(of, verb))
            continue;
        errors += verb.is_error() ? 1 : 0;
        processes.insert(verb.process);
        if (!of.tps[verb.tp].id.empty())
            tps.insert(verb.tp);
        first = first == NEVER ? verb.first_us() : std::min(first, verb.first_us());
        last = std::max(last, verb.last_us());
    }
    const std::string title = escaped(printable(options.title, 80));
    std::string page =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'; "
        "script-src 'unsafe-inline'\">\n"
        "<meta name=\"viewport\" content=\"width=device-width\">\n<title>" +
        title + "</title>\n<style>";
    page +=
        std::string(STYLE) + std::string(PAGE_STYLE) + "</style>\n</head>\n<body>\n<header><h1>" + title + "</h1>\n<p>";
    page += text_of("%zu verbs, %zu with an error, on %zu TPs in %zu processes", picture.shown + picture.left_out,
                    errors, tps.size(), processes.size());
    if (first != NEVER)
        page += " \u00B7 " + time_of(first) + " UTC, for " + duration(last - first);
    if (picture.left_out != 0)
        page += text_of(" \u00B7 the chart shows the first %zu verbs", picture.shown);
    page += "</p></header>\n<div class=\"keys\">"
            "<span><i style=\"background:var(--quick)\"></i>verb</span><span><i "
            "style=\"background:var(--bar)\"></i>verb that waits</span>"
            "<span><i style=\"background:var(--bad)\"></i>error</span><span><i "
            "style=\"background:var(--data);height:3px\"></i>data</span>"
            "<span><i style=\"background:var(--control);height:3px\"></i>turn, confirmation, begin and end</span>"
            "<span>Time runs down, a row for each event. Point at a verb for its details, click it to pick out its "
            "conversation.</span>"
            "<span><button id=\"out\">\u2212</button> <button id=\"in\">+</button> <button "
            "id=\"fit\">fit</button></span></div>\n";
    page += "<div class=\"scroll\">" + picture.svg + "</div>\n<h2>By verb</h2>\n<pre>" +
            escaped(summary(of, options.which, false)) + "</pre>\n";
    page += "<div id=\"tip\"></div>\n<script>" + std::string(PAGE_SCRIPT) + "</script>\n</body>\n</html>\n";
    return page;
}

}  // namespace tessaly::tool::trace
