// Two LU 6.2 programs in one process converse through the library and the node, embedded or in a process of its own.

#include "tests/e2e/node_process.h"
#include "tests/e2e/talking.h"

#include <array>
#include <thread>
#include <vector>

namespace {

using namespace talking;

const testing::Environment* const host = testing::AddGlobalTestEnvironment(new chosen_host);

constexpr codes deallocated{APPC_DEALLOC_NORMAL, 0};
constexpr codes abended{APPC_DEALLOC_ABEND, 0};

std::string record_of(std::size_t bytes)
{
    std::string data(bytes, '\0');
    for (std::size_t at = 0; at < bytes; ++at)
        data[at] = static_cast<char>(at * 7 + bytes);
    return data;
}

// Receives and confirms until the partner deallocates. Result: all data, in one piece.
std::string receive_all(const program& self, std::size_t max_len)
{
    std::string all;
    while (true) {
        const received got = self.receive(max_len);
        if (got.outcome == deallocated)
            return all;
        if (got.outcome != ok) {
            ADD_FAILURE() << "RECEIVE_AND_WAIT: " << got.outcome;
            return all;
        }
        all += got.data;
        if ((got.what & APPC_WR_CONFIRM) != 0) {
            EXPECT_EQ(self.confirmed(), ok);
        }
    }
}

TEST(Conversation, carries_records_of_every_size_between_two_threads)
{
    constexpr std::array<std::size_t, 7> sizes{0, 1, 255, 256, 4096, 65534, 65535};
    for (const std::size_t max_len : {std::size_t{1000}, std::size_t{65535}}) {
        std::string copy;
        std::thread receiver([&] {
            const program self = program::accept("SINK");
            copy = receive_all(self, max_len);
            EXPECT_EQ(self.end(), ok);
        });
        std::string original;
        program sender = program::start("HERE", "SOURCE");
        sender.allocate("THERE", "SINK");
        for (const std::size_t size : sizes) {
            const std::string record = record_of(size);
            original += record;
            EXPECT_EQ(sender.send(record), ok);
            EXPECT_EQ(sender.confirm(), ok);
        }
        EXPECT_EQ(sender.deallocate(), ok);
        EXPECT_EQ(sender.end(), ok);
        receiver.join();
        EXPECT_TRUE(copy == original) << copy.size() << " bytes of " << original.size() << ", max_len " << max_len;
    }
}

TEST(Conversation, keeps_the_records_apart_and_tells_where_they_end)
{
    program sender = program::start("HERE", "SOURCE");
    sender.allocate("THERE", "SINK");
    EXPECT_EQ(sender.send("first record"), ok);
    EXPECT_EQ(sender.send("second"), ok);
    EXPECT_EQ(sender.deallocate(), ok);

    const program sink = program::accept("SINK");
    struct piece {
        std::size_t max_len;
        appc_u16 what;
        const char* data;
    };
    constexpr piece pieces[] = {
        {5, APPC_WR_DATA_INCOMPLETE, "first"},
        {7, APPC_WR_DATA_COMPLETE, " record"},
        {100, APPC_WR_DATA_COMPLETE, "second"},
    };
    for (const piece& expected : pieces) {
        const received got = sink.receive(expected.max_len);
        EXPECT_EQ(got.outcome, ok);
        EXPECT_EQ(got.what, expected.what);
        EXPECT_EQ(got.data, expected.data);
    }
    EXPECT_EQ(sink.receive().outcome, deallocated);
    EXPECT_EQ(sink.end(), ok);
    EXPECT_EQ(sender.end(), ok);
}

TEST(Conversation, passes_the_turn_back_and_forth)
{
    std::thread answering([] {
        const program self = program::accept("SQUARES");
        for (int round = 0; round < 20; ++round) {
            const received question = self.receive_with_turn();
            EXPECT_EQ(question.outcome, ok);
            EXPECT_EQ(question.what, APPC_WR_DATA_COMPLETE | APPC_WR_SEND);
            const int number = std::stoi(question.data);
            EXPECT_EQ(self.send(std::to_string(number * number), APPC_SEND_P_TO_R_FLUSH), ok);
        }
        EXPECT_EQ(self.receive().outcome, deallocated);
        EXPECT_EQ(self.end(), ok);
    });
    program asking = program::start("HERE", "ASKER");
    asking.allocate("THERE", "SQUARES", APPC_SYNC_NONE);
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(asking.send(std::to_string(round)), ok);
        const received answer = asking.receive_with_turn();  // gives the turn first
        EXPECT_EQ(answer.data, std::to_string(round * round));
        EXPECT_EQ(answer.what, APPC_WR_DATA_COMPLETE | APPC_WR_SEND);
    }
    EXPECT_EQ(asking.deallocate(), ok);
    EXPECT_EQ(asking.end(), ok);
    answering.join();
}

TEST(Conversation, runs_both_sides_in_one_thread_with_asynchronous_verbs)
{
    issued waiting(program::accepting("SINK"));
    EXPECT_FALSE(waiting.finished());
    program sender = program::start("HERE", "SOURCE");
    sender.allocate("THERE", "SINK");
    ASSERT_EQ(waiting.outcome(), ok);
    const program sink = program::accepted(waiting.vcb);

    std::string buffer(100, '\0');
    issued receive(sink.receiving(buffer));
    const std::string data = "sent while the other side waits";
    issued send(sender.sending(data));
    EXPECT_EQ(send.outcome(), ok);
    ASSERT_EQ(receive.outcome(), ok);
    EXPECT_EQ(buffer.substr(0, receive.vcb.dlen), data);

    issued confirm(sender.verb<appc_confirm>(APPC_OP_CONFIRM));
    const received question = sink.receive();
    EXPECT_EQ(question.what, APPC_WR_CONFIRM);
    EXPECT_FALSE(confirm.finished());
    EXPECT_EQ(sink.confirmed(), ok);
    EXPECT_EQ(confirm.outcome(), ok);

    EXPECT_EQ(sender.deallocate(), ok);
    EXPECT_EQ(sink.receive().outcome, deallocated);
    EXPECT_EQ(sink.end(), ok);
    EXPECT_EQ(sender.end(), ok);
}

// A program that lives in callbacks alone: each completion issues the next receive, until the partner deallocates.
class callback_sink {
public:
    explicit callback_sink(const program& self) : self_(self) { receive_next(); }
    const std::string& all()
    {
        EXPECT_TRUE(done_.wait());
        return all_;
    }

private:
    void receive_next()
    {
        vcb_ = self_.receiving(buffer_);
        EXPECT_EQ(APPC_Async(&vcb_, received_one, reinterpret_cast<appc_u32>(this)), APPC_IN_PROGRESS);
    }

    static void received_one(void*, appc_u8*, appc_u32, appc_u32 corr)
    {
        auto& sink = *reinterpret_cast<callback_sink*>(corr);
        if (sink.vcb_.primary_rc != APPC_OK)
            return sink.done_.set();
        sink.all_.append(sink.buffer_, 0, sink.vcb_.dlen);
        auto waits = sink.self_.verb<appc_get_state>(APPC_OP_GET_STATE);
        APPC(&waits);
        EXPECT_EQ(codes_of(waits), (codes{APPC_STATE_CHECK, APPC_SEC_IN_CALLBACK}));
        sink.receive_next();
    }

    program self_;
    std::string buffer_ = std::string(64, '\0');
    std::string all_;
    appc_receive vcb_{};
    completion_flag done_;
};

// More than any node lets a sender be ahead without asking what the receiver does.
TEST(Conversation, sends_all_it_has_before_the_same_thread_receives_it)
{
    constexpr std::size_t records = 40;
    program sender = program::start("HERE", "SOURCE");
    sender.allocate("THERE", "SINK", APPC_SYNC_NONE);
    const program sink = program::accept("SINK");
    for (int round = 0; round < 2; ++round) {
        for (std::size_t each = 0; each < records; ++each)
            EXPECT_EQ(sender.send(record_of(60'000 + each)), ok);
        for (std::size_t each = 0; each < records; ++each)
            EXPECT_TRUE(sink.receive().data == record_of(60'000 + each)) << each;
    }
    EXPECT_EQ(sender.deallocate(), ok);
    EXPECT_EQ(sink.receive().outcome, deallocated);
    EXPECT_EQ(sink.end(), ok);
    EXPECT_EQ(sender.end(), ok);
}

TEST(Conversation, mixes_a_waiting_sender_with_a_receiver_that_lives_in_callbacks)
{
    program sender = program::start("HERE", "SOURCE");
    sender.allocate("THERE", "SINK", APPC_SYNC_NONE);
    const program self = program::accept("SINK");
    callback_sink sink(self);
    std::string original;
    for (std::size_t size = 1; size <= 200; ++size) {
        const std::string record = record_of(size);
        original += record;
        EXPECT_EQ(sender.send(record), ok);
    }
    EXPECT_EQ(sender.deallocate(), ok);
    EXPECT_TRUE(sink.all() == original);
    EXPECT_EQ(self.end(), ok);
    EXPECT_EQ(sender.end(), ok);
}

TEST(Conversation, goes_on_many_times_at_once_without_losing_a_verb)
{
    constexpr int pairs = 8;
    constexpr int rounds = 100;
    std::vector<std::thread> threads;
    for (int pair = 0; pair < pairs; ++pair) {
        const std::string name = "ECHO" + std::to_string(pair);
        threads.emplace_back([name] {
            const program self = program::accept(name.c_str());
            for (int round = 0; round < rounds; ++round) {
                const received got = self.receive_with_turn();
                EXPECT_EQ(got.outcome, ok);
                EXPECT_EQ(self.send(got.data, APPC_SEND_P_TO_R_FLUSH), ok);
            }
            EXPECT_EQ(self.receive().outcome, deallocated);
            EXPECT_EQ(self.end(), ok);
        });
        threads.emplace_back([name] {
            program self = program::start("HERE", "CALLER");
            self.allocate("THERE", name.c_str());
            for (int round = 0; round < rounds; ++round) {
                const std::string record = name + "/" + std::to_string(round);
                EXPECT_EQ(self.send(record), ok);
                EXPECT_EQ(self.receive_with_turn().data, record);
            }
            EXPECT_EQ(self.deallocate(), ok);
            EXPECT_EQ(self.end(), ok);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST(Conversation, ends_abnormally_for_the_partner_of_a_program_that_ends)
{
    program sender = program::start("HERE", "SOURCE");
    sender.allocate("THERE", "SINK");
    const program sink = program::accept("SINK");
    std::string buffer(10, '\0');
    issued receive(sink.receiving(buffer));
    EXPECT_EQ(sender.end(), ok);
    EXPECT_EQ(receive.outcome(), abended);
    EXPECT_EQ(sink.end(), ok);
}

TEST(Conversation, tells_the_accepting_program_who_calls)
{
    program sender = program::start("PAYROLL", "SOURCE");
    sender.allocate("ARCHIVE", "SINK", APPC_SYNC_CONFIRM);
    appc_receive_allocate accept = program::accepting("SINK");
    appc_c1(&accept);  // format 1
    ASSERT_EQ(codes_of(accept), ok);
    EXPECT_EQ(accept.format, 1);
    EXPECT_EQ(std::string(accept.plu_alias, accept.plu_alias + 8), "PAYROLL ");
    EXPECT_EQ(std::string(accept.lu_alias, accept.lu_alias + 8), "ARCHIVE ");
    EXPECT_EQ(accept.sync_level, APPC_SYNC_CONFIRM);
    EXPECT_EQ(accept.conv_type, APPC_MAPPED);
    appc_u8 partner[17];
    set_ebcdic(partner, sizeof partner, "TESSALY PAYROLL");
    partner[7] = 0x4B;  // the period
    EXPECT_EQ(std::memcmp(accept.fqplu_name, partner, sizeof partner), 0);
    EXPECT_EQ(program::accepted(accept).end(), ok);
    EXPECT_EQ(sender.end(), ok);
}

TEST(Cancelling, ends_a_wait_for_a_conversation)
{
    issued waiting(program::accepting("NOBODYCALLS"));
    appc_cancel_conv cancel{};
    cancel.opcode = APPC_OP_CANCEL_CONV;
    cancel.conv_id = 1;
    EXPECT_EQ(run(cancel), ok);
    EXPECT_EQ(waiting.outcome(), (codes{APPC_CANCELLED, 0}));
}

TEST(Cancelling, ends_a_conversation_and_the_receive_that_waits_in_it)
{
    program sender = program::start("HERE", "SOURCE");
    sender.allocate("THERE", "SINK");
    const program sink = program::accept("SINK");
    std::string buffer(10, '\0');
    issued receive(sink.receiving(buffer));
    EXPECT_EQ(sink.simple(APPC_OP_CANCEL_CONV), ok);
    EXPECT_EQ(receive.outcome().primary, APPC_CANCELLED);
    EXPECT_EQ(sender.receive().outcome, abended);
    EXPECT_EQ(sink.end(), ok);
    EXPECT_EQ(sender.end(), ok);
}

}  // namespace
