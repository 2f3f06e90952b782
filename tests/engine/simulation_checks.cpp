// What must hold in the simulation: every verb has one answer, records arrive whole and in order, and an end has a cause.
#include "tests/engine/simulation.h"

#include <cstring>

namespace tessaly::node::playing {

namespace {

constexpr u32 HEADER = sizeof(verb_message_header);

bool one_of(u16 code, std::initializer_list<u16> codes)
{
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

// These pass the ordinary flow by and tell an end early.
bool is_aside(u16 opcode)
{
    return one_of(opcode, {SEND_EXPEDITED_DATA, RECEIVE_EXPEDITED_DATA, TEST_RTS_AND_POST});
}

bool receives(u16 opcode)
{
    return one_of(opcode, {RECEIVE_AND_WAIT, RECEIVE_AND_POST, RECEIVE_IMMEDIATE});
}

bool may_wait(u16 opcode)
{
    return is_aside(opcode) || (receives(opcode) && opcode != RECEIVE_IMMEDIATE) ||
           one_of(opcode, {CONFIRM, PREPARE_TO_RECEIVE, DEALLOCATE, SEND_DATA});
}

constexpr std::initializer_list<u16> ENDINGS = {ALLOCATION_ERROR, DEALLOC_NORMAL, DEALLOC_ABEND, CONV_FAILURE_NO_RETRY,
                                                CONV_FAILURE_RETRY};

}  // namespace

u8* simulation::add(client_id client, frame_kind kind, u32 path, u32 size)
{
    u8* const room = world::add(client, kind, path, size);
    if (room == nullptr)
        kind == frame_kind::datagram ? void(lost_clients.insert(client)) : void(lost_paths.insert(path));
    return room;
}

void simulation::wrong(const std::string& what)
{
    if (fault.empty())
        fault = what;
}

void simulation::note(const player& p, const char* what, u16 opcode, const issued& verb)
{
    static const bool tells = std::getenv("TESSALY_SIMULATION_STORY") != nullptr;
    if (!tells)
        return;
    std::cout << events << ": client " << p.client << " path " << p.path << ' ' << what << " 0x" << std::hex << opcode
              << std::dec;
    if (verb.about != nullptr)
        std::cout << " type " << u32{verb.type} << " talk " << verb.about->number << " end " << verb.which;
    std::cout << ' ' << last << '\n';
}

void simulation::look_at_frames()
{
    for (player& each : players)
        if (each.path != 0 && lost_paths.contains(each.path)) {
            give_cause(each, CONV_FAILURE_NO_RETRY);
            for (const auto& [number, verb] : each.waiting)
                if (verb.opcode == SEND_DATA && verb.at_once)
                    verb.about->checked = false;  // the lost answer may have been a refusal
        }
    const std::vector<got> came = std::move(frames);
    frames.clear();
    for (const got& frame : came) {
        for (const u8 byte : frame.content)
            digest = digest * 31 + byte;
        const auto for_it = [&](const player& each) {
            return each.client == frame.client &&
                   (frame.kind == frame_kind::datagram ? load<u32>(frame.content.data(), 8) == each.handle
                                                       : each.path == frame.path && each.now != phase::idle);
        };
        const auto found = std::find_if(players.begin(), players.end(), for_it);
        if (found == players.end()) {
            if (frame.client != VANDAL && frame.kind != frame_kind::datagram)
                wrong("a frame for a path that is not open");
        } else if (frame.kind == frame_kind::message) {
            take_answer(*found, frame);
        } else if (frame.kind == frame_kind::path_failed) {
            if (found->client != VANDAL)
                wrong("the path of a client that did nothing wrong failed");
            give_cause(*found, CONV_FAILURE_NO_RETRY);
            forget_path(*found);
            found->now = phase::broken;
        } else if (found->now == phase::announced) {
            found->now = load<u32>(frame.content.data(), 4) == VSM_ST_READY ? phase::offered : phase::idle;
            found->attach_corr = load<u32>(frame.content.data(), 16);
        }
    }
    // The host fails what a frame was lost for: a path, or for a datagram the client.
    for (player& each : players)
        if (each.path != 0 && lost_paths.contains(each.path)) {
            forget_path(each);
            each.now = phase::broken;
        }
    lost_paths.clear();
    check_waiting();
    while (!lost_clients.empty())
        end_client(lost_clients.extract(lost_clients.begin()).value());
}

void simulation::take_answer(player& p, const got& frame)
{
    const u8* const block = frame.content.data() + HEADER;
    const u32 number = load<u32>(frame.content.data(), offsetof(verb_message_header, pend_handle));
    const u16 opcode = load<u16>(block, 0);
    last = {load<u16>(block, 4), load<u32>(block, 8)};
    if (opcode == IMPLIED_FORGET && p.forgets.erase(number) == 1)
        return;
    const auto answered = p.waiting.find(number);
    if (answered == p.waiting.end() || answered->second.opcode != opcode) {
        // On a path that has lost a frame an implied forget may overtake its answer; the host drops it.
        if (p.client != VANDAL && !lost_paths.contains(p.path))
            wrong("an answer that no verb waits for");
        return;
    }
    const issued verb = answered->second;
    note(p, "gets", opcode, verb);
    p.waiting.erase(answered);
    if (verb.about != nullptr && opcode != ALLOCATE) {
        take_conversation_answer(p, verb, frame);
        if (opcode == DEALLOCATE && verb.type == 1 && last == rc{})
            p.forgets.insert(number);
    } else if (opcode == DEALLOCATE) {
        if (last != rc{PARAMETER_CHECK, APPC_SEC_BAD_CONV_ID} && p.client != VANDAL)
            wrong("a program ended the conversation of another");
    } else if (last != rc{}) {
        return;
    } else if (opcode == TP_ENDED) {
        forget_path(p);
        p.now = phase::broken;
    } else if (opcode == ALLOCATE) {
        verb.about->ends[0].of = &p;
        verb.about->ends[0].has_turn = true;
        verb.about->ends[0].conv = load<u32>(block, 20);
        p.talks.emplace_back(verb.about, 0);
    } else {
        p.now = phase::running;
        p.node_corr = load<u32>(frame.content.data(), offsetof(verb_message_header, src_corr));
        std::memcpy(p.tp_id, block + (opcode == TP_STARTED ? 20 : 76), sizeof p.tp_id);
        if (opcode != RECEIVE_ALLOCATE)
            return;
        const u32 named = static_cast<u32>(std::strtoul(ebcdic_text(block + 90, 10).c_str(), nullptr, 10));
        const u32 of = named / TALK_FACTOR - TALK_BASE;
        if (of == 0 || named % TALK_FACTOR != 0 || of > talks.size()) {
            p.now = phase::starting;  // the vandal's work, not a talk
            return;
        }
        talk& t = talks[of - 1];
        if (t.checked && t.taken)
            wrong("a conversation was taken twice");
        t.checked = t.checked && p.client != VANDAL;
        if (t.ends[1].of != nullptr)  // the vandal, who did not keep it
            std::erase(t.ends[1].of->talks, std::pair{&t, 1u});
        t.ends[1].over = false;
        t.ends[1].of = &p;
        t.ends[1].conv = load<u32>(block, 84);
        p.talks.emplace_back(&t, 1);
    }
}

void simulation::take_conversation_answer(player& p, const issued& verb, const got& frame)
{
    talk& t = *verb.about;
    talk_end& self = t.ends[verb.which];
    talk_end& other = t.ends[1 - verb.which];
    if (self.of != &p)
        return;
    const bool was_refused = last != rc{};
    if (verb.opcode == SEND_DATA && verb.at_once && was_refused)
        --self.sent;
    if (one_of(last.primary, ENDINGS) && !is_aside(verb.opcode))
        take_ending(t, verb.which, verb, last.primary);
    if (t.checked && last == rc{PARAMETER_CHECK, APPC_SEC_BAD_CONV_ID})
        wrong("a conversation is gone for a program that was not told");
    if (was_refused)
        return;
    if (verb.opcode == PREPARE_TO_RECEIVE || verb.opcode == SEND_ERROR)
        self.has_turn = verb.opcode == SEND_ERROR;
    if (verb.opcode == CONFIRMED || verb.opcode == SEND_ERROR)
        self.asked = false;
    if (receives(verb.opcode))
        take_received(t, verb.which, frame);
    if (verb.opcode == SEND_ERROR) {  // drops what is on its way
        self.received = other.sent;
        self.offset = 0;
        self.asked_to_end = false;
    }
    if (verb.opcode == CANCEL_CONV)
        std::erase_if(p.waiting, [&](const auto& each) { return each.second.about == &t; });
    if (verb.opcode == DEALLOCATE || verb.opcode == CANCEL_CONV || (verb.opcode == CONFIRMED && self.asked_to_end) ||
        (verb.opcode == SEND_DATA && verb.type >= APPC_SEND_DEALLOC_FLUSH)) {
        self.over = true;
        std::erase(p.talks, std::pair{&t, verb.which});
    }
}

void simulation::take_received(talk& t, u32 which, const got& frame)
{
    talk_end& self = t.ends[which];
    const u32 sent = t.ends[1 - which].sent;
    const u8* const block = frame.content.data() + HEADER;
    const u16 what = load<u16>(block, 24);
    const u32 data_at = load<u32>(frame.content.data(), offsetof(verb_message_header, buf_len));
    if ((what & (APPC_WR_DATA_COMPLETE | APPC_WR_DATA_INCOMPLETE)) != 0) {
        const bytes record = make_record(t, 1 - which, self.received + 1);
        const u32 length = load<u16>(block, 32);
        const u32 end = self.offset + length;
        const bool sound = self.received < sent && length == frame.content.size() - data_at && end <= record.size() &&
                           std::equal(frame.content.begin() + data_at, frame.content.end(), record.begin() + self.offset);
        const bool complete = (what & APPC_WR_DATA_COMPLETE) != 0;
        if (t.checked && (!sound || complete != (end == record.size()) || (!complete && length != load<u16>(block, 30))))
            wrong("a record did not arrive as it was sent");
        self.offset = complete ? 0 : end;
        self.received += complete;
    }
    const u16 status = what & (APPC_WR_SEND | APPC_WR_CONFIRM | APPC_WR_CONFIRM_SEND | APPC_WR_CONFIRM_DEALLOCATE);
    if (status != 0 && t.checked && (self.received != sent || self.offset != 0))
        wrong("an indication came before the data");
    self.has_turn = (status & APPC_WR_SEND) != 0;
    self.asked = (status & ~APPC_WR_SEND) != 0;
    self.asked_to_end = (status & APPC_WR_CONFIRM_DEALLOCATE) != 0;
}

void simulation::take_ending(talk& t, u32 which, const issued& verb, u16 code)
{
    talk_end& self = t.ends[which];
    const bool has_cause = code == ALLOCATION_ERROR ? which == 0 && !t.taken : self.may_learn.contains(code);
    if (t.checked && !has_cause)
        wrong("a conversation ended without cause");
    if (t.checked && receives(verb.opcode) && (self.received != t.ends[1 - which].sent || self.offset != 0))
        wrong("the end came before the data");
    self.over = true;
    std::erase(self.of->talks, std::pair{&t, which});
}

// The partners of this program may learn that it is gone.
void simulation::give_cause(player& p, u16 code)
{
    for (const auto& [t, which] : p.talks)
        t->ends[1 - which].may_learn.insert(code);
}

void simulation::forget_path(player& p)
{
    for (const auto& [t, which] : p.talks)
        if (which == 0 || t->taken)
            t->ends[which].over = true;
        else
            t->ends[1].of = nullptr;  // who has not confirmed an attach has refused it
    p.talks.clear();
    p.waiting.clear();
    p.forgets.clear();
}

// A verb that cannot wait has its answer by now, and so has one that waits for something that will never come.
void simulation::check_waiting()
{
    for (const player& each : players)
        for (const auto& [number, verb] : each.waiting) {
            const bool over = verb.about != nullptr && verb.opcode != ALLOCATE && verb.about->ends[verb.which].over;
            if (each.client != VANDAL && (!may_wait(verb.opcode) || over))
                wrong("verb " + std::to_string(verb.opcode) + " was not answered");
        }
}

// All clients go. Then nothing waits any more, and no number is missing among those that new TPs and conversations get.
bool simulation::leave()
{
    for (client_id client = 1; client <= CLIENTS; ++client)
        end_client(client);
    time(now_ms += 40'000);
    look_at_frames();
    refuse_next = 0;
    if (node.deadline_ms())
        wrong("an attach outlives its time");
    std::set<u32> numbers;
    program a = start_tp(*this);
    for (u32 i = 0; i < 256; ++i) {
        program b = announce(*this, "LAST");
        numbers.insert(a.run(allocate("LAST")).block.conv_id % 0x10000);
        accept(b);
        numbers.insert(b.conv % 0x10000);
    }
    if (numbers.size() != 512 || *numbers.rbegin() != 512)
        wrong("a conversation is still kept that nobody can reach");
    return fault.empty();
}

namespace {

u32 setting(const char* name, u32 otherwise)
{
    const char* const text = std::getenv(name);
    return text == nullptr ? otherwise : static_cast<u32>(std::strtoul(text, nullptr, 10));
}

constexpr u32 EVENTS_OF_A_WORLD = 5000;

TEST(Simulation, holds_whatever_clients_do)
{
    const u32 events = setting("TESSALY_SIMULATION_EVENTS", 100'000);
    u32 done = 0;
    for (u32 seed = setting("TESSALY_SIMULATION_SEED", 1); done < events; ++seed) {
        simulation world(seed);
        const bool good = world.run(std::min(events - done, EVENTS_OF_A_WORLD)) && world.leave();
        done += world.events;
        ASSERT_TRUE(good) << world.fault << "; again with\n    TESSALY_SIMULATION_SEED=" << seed
                          << " TESSALY_SIMULATION_EVENTS=" << world.events << " TESSALY_SIMULATION_STORY=1"
                          << " bin/tests/engine_exhaustive --gtest_filter=Simulation.holds*";
    }
    RecordProperty("events", static_cast<int>(done));
}

TEST(Simulation, runs_the_same_again_from_the_same_seed)
{
    simulation first(7);
    simulation second(7);
    simulation other(8);
    first.run(2000);
    second.run(2000);
    other.run(2000);
    EXPECT_EQ(first.digest, second.digest);
    EXPECT_NE(first.digest, other.digest);
}

}  // namespace

}  // namespace tessaly::node::playing
