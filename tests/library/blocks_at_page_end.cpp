// Every verb and format with its block and its data right before inaccessible memory, and a node whose answers have gone wrong:
// a byte read or written too far ends the test, and whatever comes, the verb completes once.
#include "tests/support/library_test.h"
#include "verbs/catalogue.h"

#include <sys/mman.h>

#include <algorithm>

namespace tessaly::test {

namespace {

constexpr u32 PAGE = 4096;
constexpr u32 BLOCK_AT = sizeof(verb_message_header);  // in a message
constexpr u16 ABEND = 0x0071;
constexpr u16 DATA_BYTES = 13;
constexpr outcome NODE_CODES = rc(UNSUCCESSFUL, 0x77);
constexpr char MISMATCH[] = "(opcode == VAV_HDR(pndcb->vcb)->opcode) || (opcode == NAP_B_SEND_CONVERSATION)";

// An address where an inaccessible page begins, right behind one that is accessible.
u8* page_end()
{
    u8* end = static_cast<u8*>(mmap(nullptr, 2 * PAGE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) + PAGE;
    EXPECT_EQ(mprotect(end, PAGE, PROT_NONE), 0);
    return end;
}

u32 completions, forgets, trapped;

void count_completion(void*, appc_u8*, appc_u32, appc_u32) { ++completions; }
void count_post(void*, appc_u8*, appc_u32) { ++completions; }
void count_forget(void*, appc_u8*, appc_u32, appc_u16, appc_u32) { ++forgets; }
void trap() { ++trapped; }
const u32 TRAP = static_cast<u32>(reinterpret_cast<std::uintptr_t>(&trap));

// What blocks point to: their data, with its length, or a routine.
// clang-format off
constexpr u8 ANY = 0xFF;
constexpr u16 ROOM_AT = 30;  // length of data to receive
struct own_pointer { u16 opcode; u8 format; u16 at; u16 length_at; void* routine = nullptr; };
const own_pointer own_pointers[] = {
    {ALLOCATE, 0, 152, 150}, {ALLOCATE, 1, 156, 152}, {SEND_CONVERSATION, 0, 156, 152}, {SEND_CONVERSATION, 0, 188, 186},
    {SEND_DATA, ANY, 28, 26}, {SEND_ERROR, 0, 32, 28}, {SEND_EXPEDITED_DATA, 0, 28, 26}, {DEALLOCATE, ANY, 28, 26},
    {RECEIVE_AND_WAIT, 0, 36, ROOM_AT}, {RECEIVE_IMMEDIATE, 0, 36, ROOM_AT}, {RECEIVE_AND_POST, 0, 36, ROOM_AT},
    {RECEIVE_EXPEDITED_DATA, 0, 36, ROOM_AT}, {DEALLOCATE, 1, 32, 0, reinterpret_cast<void*>(&count_forget)},
    {RECEIVE_AND_POST, 0, 40, 0, reinterpret_cast<void*>(&count_post)},
    {TEST_RTS_AND_POST, ANY, 28, 0, reinterpret_cast<void*>(&count_post)},
};
// clang-format on

// ---- How an answer is spoiled.

u32 other_tp, stale_record;

void fill(bytes& answer, u32 from, u32 word)
{
    for (u32 at = BLOCK_AT + from; at < load<u32>(answer.data(), 52); at += 4)
        store(answer.data(), at, word);
}

void cut(bytes& answer, u32 length)
{
    store(answer.data(), 52, length);
    store(answer.data(), 56, length);
    answer.resize(std::max(length, BLOCK_AT));
}

// clang-format off
struct hostility { const char* how; bool dropped; void (*spoil)(bytes& answer); };
const hostility hostilities[] = {
    {"0xEE all over", false, [](bytes& a) { fill(a, 0, 0xEEEEEEEE); }},
    {"0xEE behind opcode and format", false, [](bytes& a) { fill(a, 4, 0xEEEEEEEE); }},
    {"0xEE behind the codes", false, [](bytes& a) { fill(a, 12, 0xEEEEEEEE); }},
    {"routines behind opcode and format", false, [](bytes& a) { fill(a, 4, TRAP); }},
    {"routines behind the codes", false, [](bytes& a) { fill(a, 12, TRAP); }},
    {"identifiers that are there, with names of length 18", false, [](bytes& a) { fill(a, 20, 0x12120001); }},
    {"an abend of two bytes", false, [](bytes& a) { store(a.data(), BLOCK_AT, ABEND), cut(a, BLOCK_AT + 2); }},
    {"nothing", true, [](bytes& a) { cut(a, 0); }},
    {"a byte too few", true, [](bytes& a) { cut(a, load<u32>(a.data(), 52) - 1); }},
    {"news of two bytes", true, [](bytes& a) { store(a.data(), BLOCK_AT, IMPLIED_FORGET), cut(a, BLOCK_AT + 2); }},
    {"another TP", true, [](bytes& a) { store(a.data(), 32, other_tp); }},
    {"a stale record", true, [](bytes& a) { store(a.data(), 80, stale_record); }},
};

struct verb_format { u16 opcode; u8 format; };
// clang-format on

std::vector<verb_format> answered_verbs()
{
    std::vector<verb_format> all;
    for (const published_verb& each : published_verbs)
        for (const u8 format : {u8{0}, u8{1}})
            if (each.format[format].length != 0 && find_verb(each.opcode)->issue != issue_rule::registers)
                all.push_back({each.opcode, format});
    return all;
}

}  // namespace

class blocks_at_page_end : public library_test, public ::testing::WithParamInterface<verb_format> {
protected:
    blocks_at_page_end()
    {
        other_tp = start_tp().handle;
        stale_record = node.last(SET_TP_PROPERTIES).header().pend_handle;
        std::ranges::copy_if(own_pointers, std::back_inserter(mine_), [this](const own_pointer& each) {
            return each.opcode == opcode_ && (each.format == ANY || each.format == format_);
        });
    }

    // Issues the verb; while it waits for its answer the step spoils one, and two sound ones follow. Then the TP ends.
    void issues(const std::function<void()>& step)
    {
        tp on = find_verb(opcode_)->issue == issue_rule::starts_tp ? tp{bytes(8, 0), 0, 0} : start_tp();
        node.stays_silent(opcode_);
        completions = forgets = 0;
        std::fill(block_, block_ + block_bytes_, u8{0});
        std::fill(data_, data_ + DATA_BYTES, u8{0x42});
        header_of(block_) = {opcode_, 0, format_, OK, {}, 0, {}, CONV_7};
        std::copy(on.id.begin(), on.id.end(), header_of(block_).tp_id);
        for (const own_pointer& each : mine_) {
            store<void*>(block_, each.at, each.routine != nullptr ? each.routine : data_);
            if (each.length_at != 0)
                store(block_, each.length_at, DATA_BYTES);
        }
        EXPECT_EQ(APPC_Async(block_, count_completion, CORR), VAV_IN_PROGRESS);
        if (is_receive_allocate(opcode_))
            conversation_ready(announced());
        sent_ = node.sent.back();
        step();
        node.answer(sent_);
        node.answer(sent_);
        EXPECT_EQ(completions, 1u);
        EXPECT_EQ(trapped, 0u) << "the node named a routine";
        EXPECT_EQ(header_of(block_).opcode, opcode_);
        for (const own_pointer& each : mine_)
            EXPECT_EQ(load<void*>(block_, each.at), each.routine != nullptr ? each.routine : data_) << each.at;
        bytes data(DATA_BYTES, 0x42);
        const u16 came = find_verb(opcode_)->received_into != 0 ? load<u16>(block_, 32) : u16{0};
        std::fill_n(data.begin(), std::min(came, DATA_BYTES), u8{0xEE});
        EXPECT_EQ(as_bytes(data_, DATA_BYTES), data);

        for (const u16 standing : {TP_STARTED, SET_TP_PROPERTIES, TP_ENDED})
            node.answers(standing);
        store(on.id.data(), 4, sent_.header().src_corr);
        run(make_on(on, TP_ENDED));
        EXPECT_EQ(node.held().paths, 1u) << "the other TP's";
        node.sent.clear();
    }

    bytes answer(const outcome& codes) const
    {
        return node.answer_to(sent_, {codes.primary, codes.secondary, {}, bytes(64, 0xEE)});
    }

    // Sends it, and knows which broken invariants the library will report.
    void sends_to_verb(const bytes& message)
    {
        const u16 own = sent_.opcode();
        const u16 opcode = load<u16>(message.data(), BLOCK_AT);
        const u8 format = load<u8>(message.data(), BLOCK_AT + (message.size() > BLOCK_AT + 3 ? 3 : 0));
        const bool is_verb = published(opcode) != nullptr;
        if (opcode == IMPLIED_FORGET && own != IMPLIED_FORGET) {
            if (load<u32>(message.data(), 52) > BLOCK_AT + 24 && (own != DEALLOCATE || format_ == 0))
                node.expect_assertion("(deallocate->opcode == NAP_B_DEALLOCATE) && (deallocate->format == 1)");
        } else if (opcode != ABEND) {
            if (opcode >= MAIN_OPCODES && !is_verb)
                node.expect_assertion("FALSE");
            if (opcode != own && opcode != SEND_CONVERSATION)
                node.expect_assertion(MISMATCH);
            if (own == DEALLOCATE && is_verb && format <= 1 && format != format_)
                node.expect_assertion(format == 0 ? "format == 0" : "format == 1");
        }
        node.sends(sent_.path, message);
    }

    const u16 opcode_ = GetParam().opcode;
    const u8 format_ = GetParam().format;
    const u32 block_bytes_ = published(opcode_)->block_bytes[format_];
    u8* const block_ = page_end() - block_bytes_;
    u8* const data_ = page_end() - DATA_BYTES;
    std::vector<own_pointer> mine_;
    sent_verb sent_;
};

TEST_P(blocks_at_page_end, survive_spoiled_answers)
{
    for (const hostility& each : hostilities) {
        SCOPED_TRACE(each.how);
        issues([&] {
            bytes spoiled = answer(rc(OK));
            each.spoil(spoiled);
            each.dropped ? node.sends(sent_.path, spoiled) : sends_to_verb(spoiled);
            EXPECT_EQ(completions, each.dropped ? 0u : 1u);
        });
    }
}

// The verb's own rules hold, whatever opcode its answer has: the codes come, in the formats that exist.
TEST_P(blocks_at_page_end, take_answers_of_other_verbs_as_their_own)
{
    std::vector<u16> opcodes = {0, 0x0015, ABEND, 0x0103, 0xEEEE, 0xF104, 0xFFFF};
    for (const published_verb& each : published_verbs)
        opcodes.push_back(each.opcode);
    for (const u16 opcode : opcodes) {
        for (const u8 format : bytes{0, 1, 2, 0xEE}) {
            SCOPED_TRACE(::testing::Message() << std::hex << "opcode 0x" << opcode << " format 0x" << u32{format});
            issues([&] {
                bytes odd = answer(NODE_CODES);
                store(odd.data(), BLOCK_AT, opcode);
                odd[BLOCK_AT + 3] = format;
                sends_to_verb(odd);
                const bool is_news = opcode == IMPLIED_FORGET && opcode_ != IMPLIED_FORGET;
                const outcome codes{header_of(block_).primary_rc, header_of(block_).secondary_rc};
                EXPECT_EQ(forgets, is_news && opcode_ == DEALLOCATE && format_ == 1 ? 1u : 0u);
                const outcome expected = published(opcode) != nullptr && format <= 1 ? NODE_CODES : rc(OK);
                EXPECT_TRUE(is_news || opcode == ABEND || opcode_ == TP_STARTED || codes == expected) << codes;
            });
        }
    }
}

INSTANTIATE_TEST_SUITE_P(verbs, blocks_at_page_end, ::testing::ValuesIn(answered_verbs()), [](const auto& of) {
    return "opcode_" + std::to_string(of.param.opcode) + "_format_" + std::to_string(of.param.format);
});

class odd_answers : public library_test {};

TEST_F(odd_answers, an_abend_of_a_wait_that_is_being_cancelled_ends_its_tp)
{
    const tp other = start_tp();
    const holdings before = node.held();
    verb& wait = issue(make(RECEIVE_ALLOCATE, 1));
    bytes abend = node.answer_to(node.last(SET_TP_PROPERTIES));  // a wait has no path of its own
    store(abend.data(), BLOCK_AT, ABEND);
    store(abend.data(), 32, announced());
    verb& cancel = make(CANCEL_CONV);
    cancel.header().conv_id = 1;
    issue(cancel);
    node.sends(other.path, abend);
    EXPECT_EQ(wait.codes(), rc(COMMS_SUBSYSTEM_ABENDED));
    EXPECT_EQ(cancel.codes(), rc(COMMS_SUBSYSTEM_ABENDED));
    EXPECT_EQ(wait.calls.size() * 10 + cancel.calls.size(), 11u) << "one call each";
    EXPECT_EQ(node.held(), before);
}

TEST_F(odd_answers, only_the_answer_to_TP_ENDED_ends_a_tp_and_its_SET_TP_PROPERTIES)
{
    node.stays_silent(SET_TP_PROPERTIES);
    verb& started = issue(tp_started());
    node.deliver();
    bytes answer = node.answer_to(node.last(SET_TP_PROPERTIES));
    store<u16>(answer.data(), BLOCK_AT, TP_ENDED);
    node.expect_assertion(MISMATCH);
    node.sends(node.last(SET_TP_PROPERTIES).path, answer);
    EXPECT_EQ(started.codes(), rc(OK));
    verb& set = issue(make_on(tp_of(started), SET_TP_PROPERTIES));
    EXPECT_EQ(run(make_on(tp_of(started), TP_ENDED)).codes(), rc(OK));
    EXPECT_EQ(set.codes(), rc(CANCELLED, UNTOUCHED));
    EXPECT_EQ(set.calls.size(), 1u);
}

}  // namespace tessaly::test
