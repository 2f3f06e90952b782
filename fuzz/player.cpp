// The application's side of a program: entry points, routines and the books.
#include "fuzz/player.h"

#include "v6/vav/alias_map.h"
#include "vtpsrv/vtpsmain_records.h"

#include <tessaly/appc.h>
#include <tessaly/diagnostics.h>
#include <tessaly/layout.h>
#include <tessaly/tp_server.h>

#include <gtest/gtest.h>

namespace tessaly::fuzz {

namespace {

constexpr u32 MOST_VERBS = 200;
constexpr u32 MOST_DEPTH = 6;

player* the_player = nullptr;

// A broken runtime contract fails the run, too.
struct ends_the_run : testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult& result) override
    {
        if (result.failed())
            fail(result.summary());
    }
};

// What a program or a node that does wrong may make the library report.
const std::vector<std::string> TOLERATED = {
    "FALSE",
    "(opcode == VAV_HDR(pndcb->vcb)->opcode) || (opcode == NAP_B_SEND_CONVERSATION)",
    "(deallocate->opcode == NAP_B_DEALLOCATE) && (deallocate->format == 1)",
    "format == 0",
    "format == 1",
    "rcv_info->rcv_ips != NULL",
    "ready->app_rdy_status == VSM_ST_FAILED",
    "17 >= stp->prot_id.fq_lu_name_len",
    "17 >= stp->unprot_id.fq_lu_name_len",
    "((VAV_HDR(vcb)->format) == 0) || ((VAV_HDR(vcb)->format) == 1)",
    "VAV_HDR(tmpcb->vcb)->opcode == NAP_B_ALLOCATE",
    "star_ptr > point_ptr",
};

const char* const SETTINGS[] = {"/nonexistent", TESSALY_FUZZ_DIR "/settings/named", TESSALY_FUZZ_DIR "/settings/numbered"};
const char* const ATTACH_IDS[] = {"", "0A0B0C0D00112233", "not a number of 16", "zzzzzzzzzzzzzzzz"};

constexpr bool is_synchronous(entry through)
{
    return through <= entry::c1 || through == entry::c_version;
}

}  // namespace

void on_completion(void* vcb, appc_u8* tp_id, appc_u32, appc_u32 corr)
{
    demand(tp_id != nullptr && std::count(tp_id, tp_id + 8, 0xA5) < 8, "a routine gets a TP identifier");
    the_player->completed(vcb, corr);
}

void on_post(void* vcb, appc_u8*, appc_u32) { the_player->posted(vcb); }
void on_server_event(appc_u32 event, void* data, appc_u32)
{
    demand(event == APPC_TPS_EVENT_START_APPL || data == nullptr, "only a start request comes with data");
    if (data != nullptr)
        the_player->asked_to_start(load<u64>(data, 0));
    else
        the_player->act();
}
void on_forget(void* vcb, appc_u8*, appc_u32, appc_u16, appc_u32 value) { the_player->forgot(vcb, value); }

player::player(input& in) : in_(in)
{
    static const bool listens = [] {
        auto& listeners = testing::UnitTest::GetInstance()->listeners();
        delete listeners.Release(listeners.default_result_printer());
        listeners.Append(new ends_the_run);
        return true;
    }();
    demand(listens, "failures are heard");
    the_player = this;
    test::the_node = &node_;
    vav_appc_caps = vav_appc_caps_5_1_2;
    node_.tolerated_assertions = TOLERATED;

    const u32 choices = in.number<u16>(), start = in.number<u8>();
    std::memset(ptrc, 0, 9);
    ptrc[1] = (choices & 1) != 0 ? 0x08 : 0;
    ptrc[8] = choices >> 1 & 3;
    trc_api = {};
    node_.reads_dumps = true;
    if ((start & 0x10) != 0)
        node_.trace_file = TRC_NO_FILE;
    node_.nodes.assign((choices >> 3 & 3) + ((choices & 0x20) == 0), 0x01010101);
    alias_map_directory = SETTINGS[(choices >> 6 & 3) % std::size(SETTINGS)];
    setenv("APPC_ATTACH_ID", ATTACH_IDS[(choices & 0x100) != 0 ? choices >> 9 & 3 : 0], 1);
    std::strcpy(BoxName, (choices & 0x800) != 0 ? "a-machine-whose-name-is-rather-long-for-that-of-a-machine-1" : "box");
    if ((choices & 0x1000) != 0)
        node_.address = 0xFFFFFFFF;
    if ((choices & 0x2000) != 0)
        node_.user_name.reset();
    for (u32 i = 0; i < (start & 3); ++i)
        issue(entry::appc, TP_STARTED, false);
    for (u32 i = 0; i < (start >> 2 & 3); ++i)
        issue(entry::async, RECEIVE_ALLOCATE_EX, false);
    if ((choices & 0x4000) != 0)
        for (const auto& verb : test::published_verbs)
            node_.answers(verb.opcode);
    if ((choices & 0x8000) != 0)
        node_.scripts.clear();
}

u16 player::any_opcode()
{
    static constexpr u16 eventful[] = {RECEIVE_AND_WAIT, RECEIVE_AND_POST, DEALLOCATE, CANCEL_CONV, TP_ENDED, TP_STARTED,
                                       RECEIVE_ALLOCATE, SET_TP_PROPERTIES};
    return in_.below(2) == 0 ? in_.one_of(eventful) : in_.one_of(test::published_verbs).opcode;
}

void player::step()
{
    switch (in_.below(16)) {
    case 0: return issue(entry::async, TP_STARTED, false);
    case 1: return issue(entry::async, in_.below(2) == 0 ? RECEIVE_ALLOCATE : RECEIVE_ALLOCATE_EX, false);
    case 2: return issue(entry::appc, any_opcode(), false);
    case 3:
    case 4:
    case 5: return issue(entry::async, any_opcode(), false);
    case 6: return issue(static_cast<entry>(in_.below(ENTRIES)), any_opcode(), true);
    case 7:
    case 8:
    case 9: return answer(false);
    case 10:
    case 11: return answer(true);
    case 12: return send_raw();
    case 13: return send_datagram();
    case 14: return lose_something();
    default: return change_the_world();
    }
}

void player::finish()
{
    finished_ = true;
    node_.deliver();
    // A TP may have a record in reserve, for the library's own SET_TP_PROPERTIES; a server has a wait object.
    const test::holdings held = node_.held();
    demand(held.handles <= held_.size() + held.entries, "each record is that of a verb under way");
    demand(held.wait_objects <= held_.size() + held.entries, "each wait object is that of a verb under way, or a server's");
    // The TP server learns of the end through its path users, so it needs one.
    if (tps_main_cb != nullptr) {
        node_.refuse_nothing();
        appc_register_tp_server block{.opcode = NAP_REGISTER_TP_SERVER, .server_callback = on_server_event};
        demand(appc_async_int(&block, on_completion, 0) == APPC_COMPLETE && block.primary_rc == OK, "a server registers");
    }
    node_.reports(NODE_EVENT_TERMINATED);
    node_.deliver();
    demand(tps_main_cb == nullptr, "the TP server is unloaded when the node has ended");
    for (const auto& [vcb, verb] : held_)
        demand(verb.completed, "every accepted verb completes");
    node_.expected_assertions.clear();
    node_.check_at_end();
    held_.clear();
}

u16 player::enter(entry through, void* vcb, bool with_callback, u32 version)
{
    const appc_completion callback = with_callback ? on_completion : nullptr;
    switch (through) {
    case entry::appc: return APPC(vcb), u16{0};
    case entry::appc_c: return APPC_C(vcb), u16{0};
    case entry::appc_p: return APPC_P(vcb), u16{0};
    case entry::c1: return appc_c1(vcb), u16{0};
    case entry::async: return APPC_Async(vcb, callback, issued_);
    case entry::async1: return appc_async1(vcb, callback, issued_);
    case entry::async_int: return appc_async_int(vcb, callback, issued_);
    case entry::c_version: return appc_c_version(version, vcb), u16{0};
    case entry::c_async_version: return appc_c_async_version(version, vcb, callback, issued_);
    }
    return 0;
}

void player::issue(entry through, u16 opcode, bool wild)
{
    if (issued_ == MOST_VERBS || (depth_ >= MOST_DEPTH && is_synchronous(through)))
        return;
    // A routine of a TP server must not wait.
    const bool with_callback = depth_ >= MOST_DEPTH || (is_tp_servers(opcode) && in_routine_ != 0) || in_.below(8) != 0;
    played_verb fresh = make(through, opcode, wild);
    const u32 version = through < entry::c_version ? 0 : in_.below(4);
    address_data(fresh, through);
    address_routines(fresh, version);
    void* vcb = fresh.block.get();
    played_verb& verb = held_.emplace(vcb, std::move(fresh)).first->second;

    const bool waits = is_synchronous(through) || !with_callback;
    depth_ += waits;
    waiting_ += waits;
    if (waits)
        node_.while_asleep([this] { interlude(); });
    const u16 result = enter(through, vcb, with_callback, version);
    depth_ -= waits;
    waiting_ -= waits;
    is_back(verb, waits, result);
}

void player::trace(u16 opcode)
{
    played_verb verb = make(entry::async, opcode, true);
    address_data(verb, entry::async);
    address_routines(verb, 0);
    ptrc[1] = 0x08;
    trc_api.initialised = 0;
    const std::vector<u8> before(verb.block.get(), verb.block.get() + verb.block_bytes), tp_id = in_.field(8);
    const u16 lock = vpm_lock();
    seputrap(in_.number<u8>() % 4, verb.block.get());
    seputrap2(verb.block.get(), in_.number<u32>(), in_.number<u32>(), tp_id.data(), in_.number<u16>(), &verb);
    vpm_unlock(lock);
    demand(std::equal(before.begin(), before.end(), verb.block.get()), "the trace changes no block");
}

void player::is_back(played_verb& verb, bool waited, u16 result)
{
    const bool is_post_verb = verb.opcode == RECEIVE_AND_POST || verb.opcode == TEST_RTS_AND_POST;
    demand(waited || result == APPC_IN_PROGRESS || result == APPC_COMPLETE, "an asynchronous entry says what became of the verb");
    demand(!verb.completed, "no verb completes before its entry returns");
    if (waited && !is_post_verb)
        verb.accepted = verb.completed = true;
    else
        verb.accepted = waited ? header_of(verb.block.get()).primary_rc == OK : result == APPC_IN_PROGRESS;
    if (!verb.accepted || (verb.completed && !verb.awaits_forget()))
        held_.erase(verb.block.get());
}

played_verb& player::held(void* vcb)
{
    const auto found = held_.find(vcb);
    demand(found != held_.end(), "a routine is called for a block that the library has");
    return found->second;
}

void player::complete(played_verb& verb)
{
    demand(verb.accepted && !verb.completed, "an accepted verb completes once");
    verb.completed = true;
    if (!verb.awaits_forget())
        held_.erase(verb.block.get());
    act();
}

void player::completed(void* vcb, u32 corr)
{
    played_verb& verb = held(vcb);
    demand(verb.number == corr && !verb.posts, "a verb completes with its own correlator");
    complete(verb);
}

void player::posted(void* vcb)
{
    played_verb& verb = held(vcb);
    demand(verb.posts, "the block names that routine");
    complete(verb);
}

void player::forgot(void* vcb, u32 value)
{
    played_verb& verb = held(vcb);
    demand(verb.may_forget && value == FORGET_VALUE + verb.number, "the forget value is the block's own");
    demand(!verb.forgotten, "a conversation is forgotten once");
    verb.forgotten = true;
    if (verb.completed)
        held_.erase(vcb);
    act();
}

void player::asked_to_start(u64 start_id)
{
    start_id_ = start_id;
    act();
}

void player::act()
{
    if (finished_ || depth_ >= MOST_DEPTH || in_.below(4) != 1)
        return;
    ++depth_;
    ++in_routine_;
    step();
    --in_routine_;
    --depth_;
}

// As from another thread. When the program is over, the end of the node's services must wake whoever sleeps.
void player::interlude()
{
    node_.while_asleep([this] { interlude(); });
    if (!in_.is_empty())
        return step();
    demand(idle_ends_++ < 2 * MOST_DEPTH, "the end of the node wakes every caller");
    node_.reports(NODE_EVENT_TERMINATED);
}

}  // namespace tessaly::fuzz
