// A trace in words and in a picture.
#pragma once

#include "tools/tessaly/trace_story.h"

#include <cstdio>

namespace tessaly::tool::trace {

// "18.4 us", "2.10 ms", "3.00 s"
std::string duration(std::int64_t us);

// Date and time of day in UTC, with microseconds.
std::string time_of(std::int64_t us);

// Counts, results and times by verb: a table, or a JSON document.
std::string summary(const story& of, const filter& which, bool json);

// One verb in a line of text, or as a JSON object in a line.
std::string line_of(const story& of, const verb_run& verb, bool json);

// The sequence chart.
struct chart_options {
    filter which;
    std::size_t limit = 2000;  // verbs, the first ones
    std::string title;
};

struct chart {
    std::string svg;                      // a whole SVG document, or the picture of the HTML page
    std::size_t shown = 0, left_out = 0;  // verbs
};

enum class chart_for : u8 { svg_file, html_page };

chart draw(const story& of, const chart_options& options, chart_for use);

// A page of its own: the chart, what a verb held when the pointer is on it, and the table of the summary.
std::string page_of(const story& of, const chart_options& options, const chart& picture);

// Text as the content or a quoted attribute of an element.
std::string escaped(std::string_view text);

}  // namespace tessaly::tool::trace
