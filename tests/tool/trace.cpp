// The reader of verb traces: files as the runtime writes them, and files that nobody should have to read.
#include "tests/tool/support.h"

#include <nlohmann/json.hpp>
#include <unistd.h>

#include <array>
#include <cstring>
#include <sstream>

namespace tessaly::tool {

namespace {

// One record of a block whose dump is filled up with zeros.
struct traced {
    const char* time;
    int process;
    const char* headline;
    std::size_t bytes;
    std::vector<std::pair<std::size_t, std::string>> fields;  // offset, bytes
    std::string data = "";
};

std::string dump(const std::string& bytes)
{
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 16) {
        std::string hex, shown;
        for (std::size_t i = at; i < at + 16; ++i) {
            hex += i < bytes.size() ? text_of("%02x", static_cast<unsigned char>(bytes[i])) : "  ";
            hex += i % 4 == 3 ? " " : "";
            shown += i < bytes.size() ? printable(bytes.substr(i, 1)) : " ";
        }
        text += text_of("APPC   %04zx  ", at) + hex + " |" + shown + "| |" + shown + "|\n";
    }
    return text;
}

std::string written(const traced& of, std::uint32_t address = 0x1000)
{
    std::string block(of.bytes, '\0');
    for (const auto& [at, bytes] : of.fields)
        block.replace(at, bytes.size(), bytes);
    std::string text = text_of("APPC  ==== 2031-02-03 %s +0100 [%d.%d] ====\nAPPC  %s\n", of.time, of.process,
                               of.process, of.headline);
    text += text_of("APPC  ---- Verb Parameter Block at address 0x%x ----\n", address) + dump(block);
    return of.data.empty() ? text : text + "APPC  ---- Data at address 0xff8a0010 ----\n" + dump(of.data);
}

std::string number(std::uint32_t value, std::size_t bytes = 4)
{
    return {reinterpret_cast<const char*>(&value), bytes};
}

constexpr char SCRIPT[] = "</desc><script>alert(1)</script>";

// Two processes: SERVER waits, CLIENT allocates, sends a record with the turn, and is told of an error. The same block address
// is used in both; the responses cross.
std::string two_programs()
{
    const auto tp = [](int n) {
        return std::pair<std::size_t, std::string>{12, number(0) + number(static_cast<std::uint32_t>(n))};
    };
    const auto conv = [](std::uint32_t n) { return std::pair<std::size_t, std::string>{20, number(n)}; };
    const std::string opcodes = "\x14\x16\x01\x0F\x0B";
    const auto op = [&](int i, char ext = 1) {
        return std::pair<std::size_t, std::string>{0, {opcodes[static_cast<std::size_t>(i)], 0, ext}};
    };
    const std::string data = SCRIPT;
    return written({"10:00:00.000000", 2, "RECEIVE_ALLOCATE request", 164, {op(1, 0)}}) +
           written({"10:00:00.001000", 1, "TP_STARTED request", 112, {op(0, 0), {28, "CLIENT"}}}) +
           written({"10:00:00.001100",
                    1,
                    "TP_STARTED response, result = OK",
                    112,
                    {op(0, 0), {12, "HERE"}, {20, number(0) + number(7)}, {28, "CLIENT"}}}) +
           written(
               {"10:00:00.002000", 1, "MC_ALLOCATE request", 184, {op(2), tp(7), {38, "THERE"}, {54, "<b>SERVER"}}}) +
           written({"10:00:00.002050",
                    1,
                    "MC_ALLOCATE response, result = OK",
                    184,
                    {op(2), tp(7), conv(65), {38, "THERE"}, {54, "<b>SERVER"}}}) +
           written({"10:00:00.003000",
                    2,
                    "RECEIVE_ALLOCATE response, result = OK",
                    164,
                    {op(1, 0),
                     {12, "<b>SERVER"},
                     {76, number(0) + number(7)},
                     {84, number(66)},
                     {100, "THERE"},
                     {108, "HERE"}}}) +
           written({"10:00:00.003100", 2, "MC_RECEIVE_AND_WAIT request", 48, {op(4), tp(7), conv(66)}}) +
           written({"10:00:00.004000",
                    1,
                    "MC_SEND_DATA request",
                    36,
                    {op(3), tp(7), conv(65), {26, number(32, 2)}, {32, "\x03"}},
                    data}) +
           written({"10:00:00.004250",
                    1,
                    "MC_SEND_DATA response, result = OK",
                    36,
                    {op(3), tp(7), conv(65), {26, number(32, 2)}, {32, "\x03"}}}) +
           written({"10:00:00.005000",
                    2,
                    "MC_RECEIVE_AND_WAIT response, result = OK",
                    48,
                    {op(4), tp(7), conv(66), {24, number(0x0A, 2)}, {32, number(32, 2)}},
                    data}) +
           written({"10:00:00.006000", 1, "MC_RECEIVE_AND_WAIT request", 48, {op(4), tp(7), conv(65)}}) +
           written({"10:00:01.006000",
                    1,
                    "MC_RECEIVE_AND_WAIT response, result = STATE_CHECK",
                    48,
                    {op(4), {4, number(0x200, 2)}, {8, number(0xB1000000)}, tp(7), conv(65)}});
}

}  // namespace

class trace_reader : public ToolTest {
protected:
    // Runs the subcommand on a file with this text.
    ending show(const std::string& text, trace_options options = {})
    {
        create("verbs.trace", text);
        options.files = {"verbs.trace"};
        std::FILE* out = std::fopen("out", "w");
        ending end = show_trace(nullptr, options, out);
        std::fclose(out);
        output = content("out");
        return end;
    }

    static trace_options list() { return {.files = {}, .which = {}, .list = true}; }
    std::ptrdiff_t lines() const { return std::ranges::count(output, '\n'); }

    std::string output;
};

TEST_F(trace_reader, sums_up_by_verb)
{
    EXPECT_EQ(show(two_programs()).message, "");
    EXPECT_NE(output.find("MC_SEND_DATA                      1     250 us     250 us  OK\n"), std::string::npos)
        << output;
    EXPECT_NE(output.find("MC_RECEIVE_AND_WAIT               2    1.90 ms     1.00 s  OK 1, STATE_CHECK 1\n"),
              std::string::npos)
        << output;
    EXPECT_EQ(show(two_programs(), {.files = {}, .which = {}, .json = true}).code, EXIT_OK);
    const auto document = nlohmann::json::parse(output);
    EXPECT_EQ(document["verbs"].size(), 5u);
    EXPECT_EQ(document["verbs"][1]["p99_us"], 1'000'000);
}

TEST_F(trace_reader, lists_verbs_as_they_were_issued_and_as_chosen)
{
    show(two_programs(), list());
    EXPECT_EQ(lines(), 6) << output;
    EXPECT_TRUE(output.starts_with(
        "09:00:00.000000  2      <b>SERVER    RECEIVE_ALLOCATE            3.00 ms  OK  conversation 66\n"))
        << output;
    EXPECT_NE(output.find("STATE_CHECK / RCV_AND_WAIT_BAD_STATE (0xB1000000)  conversation 65\n"), std::string::npos)
        << output;

    const std::pair<trace::filter, int> choices[] = {{{.tp = "CLIENT"}, 4},
                                                     {{.tp = "7"}, 6},
                                                     {{.tp = "2"}, 2},
                                                     {{.conversation = 65}, 3},
                                                     {{.verb = "RECEIVE_AND_WAIT"}, 2},
                                                     {{.errors = true}, 1},
                                                     {{.tp = "NONE"}, 0},
                                                     {{.conversation = 66, .verb = "MC_RECEIVE_AND_WAIT"}, 1}};
    for (const auto& [which, count] : choices) {
        trace_options options = list();
        options.which = which;
        options.json = true;
        show(two_programs(), options);
        EXPECT_EQ(lines(), count) << output;
        std::istringstream objects(output);
        for (std::string line; std::getline(objects, line);)
            EXPECT_TRUE(nlohmann::json::parse(line).contains("microseconds"));
    }
}

TEST_F(trace_reader, says_where_a_file_is_broken_and_shows_the_rest)
{
    const std::string good = written({"10:00:00.000000", 1, "CONFIRM request", 28, {{0, "\x03"}}});
    const auto with = [&](const std::string& what, const std::string& instead) {
        std::string text = good;
        return text.replace(text.find(what), what.size(), instead) + good;
    };
    const struct {
        std::string text;
        int code;
        const char* message;
        int shown;
    } cases[] = {
        {good + good.substr(0, good.size() - 9), 1,
         "verbs.trace:10: the file ends within a line; its record, from line 6, is left out", 1},
        {good + good.substr(0, good.rfind("APPC")), 1, "verbs.trace:6: the record breaks off: it shows 16 of 28 bytes",
         1},
        {with("10:00:00", "10:99:00"), 1, "verbs.trace:1: no date, time", 1},
        {with("2031-02", "2031-13"), 1, "verbs.trace:1: no date, time", 1},
        {with("[1.", "[99999999999."), 1, "verbs.trace:1: no date, time", 1},
        {with("0010  ", "0020  "), 1, "verbs.trace:5: not of a trace record", 1},
        {with("03000000 ", "0300x000 "), 1, "verbs.trace:4: not of a trace record", 1},
        {with("address 0x1000", "address 0xfffffffffffffffff"), 1, "verbs.trace:3: not of a trace record", 1},
        {with("CONFIRM request", std::string(5000, 'A')), 1,
         "verbs.trace:2: not of a trace record: (a line of more than 2048", 1},
        {with("CONFIRM", std::string("\0\x1B[2J", 5)), 0, "", 2},
        {good + "\n" + good, 0, "", 2},
        {"\x7F"
         "ELF\x01" +
             std::string(100'000, '\n') + std::string(3'000'000, '\xFF'),
         2, "verbs.trace is no verb trace:\nverbs.trace:1: ", 0},
        {"", 0, "holds no records yet", 0},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.message);
        const ending end = show(each.text, list());
        EXPECT_EQ(end.code, each.code);
        EXPECT_NE(end.message.find(each.message), std::string::npos) << end.message;
        EXPECT_EQ(lines(), each.shown) << output;
        EXPECT_EQ(output.find('\x1B'), std::string::npos);
    }
    trace_options options;
    options.files = {"."};
    EXPECT_EQ(show_trace(nullptr, options, stdout).message, "cannot read .: Is a directory");
}

TEST_F(trace_reader, draws_lanes_and_arrows_and_no_foreign_markup)
{
    trace_options options;
    options.svg = "chart.svg";
    options.html = "chart.html";
    EXPECT_EQ(show(two_programs(), options).message, "");
    for (const std::string& picture : {content("chart.svg"), content("chart.html")}) {
        const auto count = [&](const std::string& what) {
            int found = 0;
            for (std::size_t at = 0; (at = picture.find(what, at)) != std::string::npos; ++at)
                ++found;
            return found;
        };
        EXPECT_EQ(count("class=\"tp\""), 2);
        EXPECT_EQ(count("<g class=\"v "), 6);
        EXPECT_EQ(count("<g class=\"v bad\""), 1);
        EXPECT_EQ(count("class=\"a control\""), 1) << "attach";
        EXPECT_EQ(count("class=\"a data\""), 1);
        EXPECT_EQ(count(">turn</text>"), 1);
        EXPECT_EQ(count("alert(1)</script>") + count("<b>"), 0);
        EXPECT_EQ(count("http") - count("http://www.w3.org/2000/svg") - count("http-equiv"), 0)
            << "it refers to nothing else";
        EXPECT_GE(count("&lt;script&gt;alert(1)"), 2);
    }
    options.limit = 3;
    EXPECT_NE(show(two_programs(), options).message.find("shows the first 3 verbs and leaves out 3"),
              std::string::npos);
    options.svg = "missing/chart.svg";
    EXPECT_EQ(show(two_programs(), options).code, EXIT_USAGE);
}

TEST_F(trace_reader, follows_a_file_that_grows_until_it_is_stopped)
{
    const std::string all = two_programs();
    create("growing.trace", "");
    trace_options options;
    options.files = {"growing.trace"};
    options.follow = true;
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    std::FILE* out = ::fdopen(ends[1], "w");
    std::setvbuf(out, nullptr, _IOLBF, BUFSIZ);
    stopper stop;
    auto followed = in_thread([&] { return show_trace(&stop, options, out); });

    std::FILE* lines_in = ::fdopen(ends[0], "r");
    char line[512];
    const auto expect_next = [&](const char* what) {
        ASSERT_NE(std::fgets(line, sizeof line, lines_in), nullptr);
        EXPECT_NE(std::strstr(line, what), nullptr) << line;
    };
    // In pieces that end anywhere; a record whose block is complete is shown before the next one begins.
    const std::size_t middle = all.find("MC_ALLOCATE request") + 3;
    std::ofstream("growing.trace", std::ios::app) << all.substr(0, middle) << std::flush;
    expect_next("TP_STARTED");
    std::ofstream("growing.trace", std::ios::app) << all.substr(middle) << std::flush;
    for (const char* verb : {"MC_ALLOCATE", "RECEIVE_ALLOCATE", "MC_SEND_DATA", "MC_RECEIVE_AND_WAIT", "STATE_CHECK"})
        expect_next(verb);
    stop.stop(stop_cause::finished);
    EXPECT_EQ(followed.get().message, "");
    std::fclose(out);
    std::fclose(lines_in);
}

TEST_F(trace_reader, tells_versions_from_the_markers_of_a_file)
{
    const auto version = [](const std::string& text, std::string& shown) {
        create("library", text);
        std::FILE* out = std::fopen("out", "w");
        const ending end = version_of("library", out);
        std::fclose(out);
        shown = content("out");
        return end;
    };
    std::string shown;
    for (const std::size_t before : {std::size_t{0}, std::size_t{65'534}, std::size_t{65'300}, std::size_t{200'000}}) {
        EXPECT_EQ(version(std::string(before, '@') + "@(#)]V1 one\n@(#)]\x1Btwo\n@(#)]" + std::string(1, '\0') + "more",
                          shown)
                      .code,
                  EXIT_OK);
        EXPECT_EQ(shown, "]V1 one\n].two\n]\n") << before;
    }
    EXPECT_EQ(version("@(#", shown).code, EXIT_USAGE);
    EXPECT_EQ(version("", shown).code, EXIT_USAGE);
    EXPECT_EQ(version_of("missing", stdout).message, "cannot open missing: No such file or directory");
    EXPECT_EQ(version_of(".", stdout).message, "cannot read .: Is a directory");
}

}  // namespace tessaly::tool
