// send and receive, both ends in this process over the embedded node; then each against a partner that breaks the rules.
#include "tools/tessaly/transfer.h"
#include "tools/tessaly/crc64.h"

#include "tests/tool/support.h"

namespace tessaly::tool {

using bytes = std::vector<appc_u8>;

class transfer : public ToolTest {
protected:
    auto receiving(const receive_options& options)
    {
        return in_thread([options, this] { return receive_file(receiver_stop, options); });
    }

    const partner there{"THERE", "RECV"};
    stopper stop, receiver_stop;
};

TEST_F(transfer, delivers_files_of_every_length_whole_and_under_their_names)
{
    for (const std::size_t size : {0U, 1U, 32'768U, 32'769U, 1'000'003U}) {
        SCOPED_TRACE(size);
        std::string text(size, '\0');
        for (std::size_t at = 0; at < size; ++at)
            text[at] = static_cast<char>(at * at >> 3);
        create("report", text);
        create("copy", "an older one");
        auto received = receiving({.tp = "RECV", .output = "copy"});
        const ending sent = send_file(stop, {.file = "report", .with = there});
        EXPECT_EQ(sent.code, EXIT_OK) << sent.message;
        const ending got = received.get();
        EXPECT_EQ(got.code, EXIT_OK) << got.message;
        EXPECT_EQ(got.message.substr(got.message.find("CRC-64 "), 23),
                  sent.message.substr(sent.message.find("CRC-64 ")));
        EXPECT_TRUE(content("copy") == text);
        EXPECT_EQ(files(), (std::vector<std::string>{"copy", "report"}));
    }
}

TEST_F(transfer, takes_the_name_that_the_sender_tells_but_never_an_existing_file)
{
    std::filesystem::create_directory("from");
    create("from/report", "new");
    for (const int expected : {EXIT_OK, EXIT_VERB_FAILED}) {
        auto received = receiving({.tp = "RECV", .output = ""});
        const ending sent = send_file(stop, {.file = "from/report", .with = there});
        EXPECT_EQ(sent.code, expected) << sent.message;
        EXPECT_EQ(received.get().code, expected);
        const bool refused = sent.message.find("the receiver refused the file: there is a file report already") == 0;
        EXPECT_EQ(refused, expected != EXIT_OK) << sent.message;
        EXPECT_EQ(content("report"), "new");
        create("report", "new");
    }
    EXPECT_EQ(files(), (std::vector<std::string>{"from", "report"}));
}

bytes record(char kind, std::string_view text)
{
    bytes made{static_cast<appc_u8>(kind)};
    made.insert(made.end(), text.begin(), text.end());
    return made;
}

bytes header(std::string_view name)
{
    return record('H', std::string(TRANSFER_MAGIC) + std::string(NUMBER_BYTES, '\0') + std::string(name));
}

bytes end_of(std::uint64_t size, std::string_view sum_of)
{
    bytes made(END_BYTES, 'E');
    crc64 sum;
    sum.add({reinterpret_cast<const appc_u8*>(sum_of.data()), sum_of.size()});
    put_number(std::span(made).subspan(1), size);
    put_number(std::span(made).subspan(END_CRC_AT), sum.value());
    return made;
}

struct hostile_sender {
    std::vector<bytes> records;
    const char* reason;  // what the receiver says
    bool vanishes = false;
};

TEST_F(transfer, keeps_nothing_of_what_a_hostile_or_lost_sender_sends)
{
    const hostile_sender senders[] = {
        {{record('D', "data")}, "no header came first"},
        {{record('H', "another protocol")}, "the header is none of this program"},
        {{header("")}, "file name cannot be used"},
        {{header("a/../../escaped")}, "file name cannot be used"},
        {{header(".hidden")}, "file name cannot be used"},
        {{header("a\x1B[2J")}, "file name cannot be used"},
        {{header(std::string(256, 'n'))}, "file name cannot be used"},
        {{header("f"), {}}, "an empty record"},
        {{header("f"), header("g")}, "a record out of order"},
        {{header("f"), record('D', "data"), end_of(4, "date")}, "the checksum differs"},
        {{header("f"), record('D', "data"), end_of(5, "data")}, "the size differs"},
        {{header("f"), record('D', "data"), record('E', "")}, "a wrong end record"},
        {{header("f"), record('D', "data"), end_of(4, "data"), record('D', "more")}, "a record out of order"},
        {{header("f"), record('D', "data")}, "the file ended too early"},
        {{header("f"), record('D', "data"), end_of(4, "data")}, "DEALLOC_ABEND", true},
    };
    for (const hostile_sender& sender : senders) {
        SCOPED_TRACE(sender.reason);
        auto received = receiving({.tp = "RECV", .output = ""});
        {
            conversation conv(stop, NO_LIMIT);
            ASSERT_TRUE(conv.allocate("", "HOSTILE", there, APPC_SYNC_CONFIRM).ok());
            for (const bytes& each : sender.records)
                conv.send(each);
            const u16 end = sender.vanishes ? u16{PROG_ERROR_PURGING} : conv.deallocate(APPC_DEALLOC_CONFIRM).primary;
            EXPECT_EQ(end, PROG_ERROR_PURGING);
        }
        const ending got = received.get();
        EXPECT_EQ(got.code, EXIT_VERB_FAILED);
        EXPECT_NE(got.message.find(sender.reason), std::string::npos) << got.message;
        EXPECT_EQ(files(), std::vector<std::string>{});
    }
}

TEST_F(transfer, shows_a_hostile_receivers_reason_without_its_control_characters)
{
    create("report", "text");
    auto sent = in_thread([this] { return send_file(stop, {.file = "report", .with = there}); });
    {
        conversation conv(receiver_stop, NO_LIMIT);
        ASSERT_TRUE(conv.accept("RECV").ok());
        ASSERT_TRUE(conv.send_error().ok());
        ASSERT_TRUE(conv.send(record('R', "\x1B]0;mine\a\xC2\x9B")).ok());
    }
    EXPECT_EQ(sent.get().message, "the receiver refused the file: .]0;mine...");
}

TEST_F(transfer, of_a_sender_that_is_not_answered_ends_at_its_time_out_and_the_receiver_is_told)
{
    create("report", "text");
    conversation conv(receiver_stop, NO_LIMIT);
    auto sent = in_thread(
        [this] { return send_file(stop, {.file = "report", .with = there, .limit = std::chrono::milliseconds(50)}); });
    ASSERT_TRUE(conv.accept("RECV").ok());
    bytes buffer(100);
    for (received got; !got.has(APPC_WR_CONFIRM_DEALLOCATE);)
        ASSERT_TRUE(conv.receive(buffer, got).ok());
    const ending end = sent.get();
    EXPECT_EQ(end.code, EXIT_TIME_OUT);
    EXPECT_NE(end.message.find("DEALLOCATE took longer than 0.05 s"), std::string::npos) << end.message;
    EXPECT_EQ(conv.confirmed().primary, DEALLOC_ABEND);
}

TEST_F(transfer, with_nobody_there_ends_when_its_time_is_up_or_when_it_is_stopped)
{
    const ending late = receive_file(stop, {.tp = "RECV", .output = "", .limit = std::chrono::milliseconds(10)});
    EXPECT_EQ(late.code, EXIT_TIME_OUT);
    EXPECT_NE(late.message.find("RECEIVE_ALLOCATE took longer"), std::string::npos);

    auto stopped = receiving({.tp = "RECV", .output = ""});
    receiver_stop.stop(stop_cause::signal);  // before, while or after the verb is issued
    EXPECT_EQ(stopped.get().code, EXIT_VERB_FAILED);
}

}  // namespace tessaly::tool
