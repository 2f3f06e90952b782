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
                                                CONV_FAILURE_RETRY, DEALLOC_ABEND_PROG, DEALLOC_ABEND_SVC,
                                                DEALLOC_ABEND_TIMER};

}  // namespace

u8* simulation::add(client_id client, frame_kind kind, u32 path, u32 size)
{
    if (lost_paths.contains(path) && kind != frame_kind::datagram)
        wrong("a frame on a path that has lost one");
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
    if (tells)
        std::cout << events << ": client " << p.client << " path " << p.path << ' ' << what << " 0x" << std::hex << opcode
                  << " type " << u32{verb.type} << std::dec << " talk " << (verb.about != nullptr ? verb.about->number : 0)
                  << " end " << verb.which << ' ' << last << '\n';
}

void simulation::look_at_frames()
{
    for (player& each : players)
        if (each.path != 0 && lost_paths.contains(each.path)) {
            give_cause(each, CONV_FAILURE_NO_RETRY);
            for (const auto& [number, verb] : each.waiting)
                if (one_of(verb.opcode, {SEND_DATA, SEND_EXPEDITED_DATA}) && verb.at_once)
                    verb.about->checked = false;  // the lost answer may have been a refusal
        }
    const std::vector<got> came = std::move(frames);
    frames.clear();
    for (const got& frame : came) {
        offers += frame.kind == frame_kind::datagram;
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
            take_offer_for(*found, frame);
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

void simulation::take_offer_for(player& p, const got& frame)
{
    appl_ready_datagram ready{};
    std::memcpy(&ready, frame.content.data(), sizeof ready);
    p.now = ready.app_rdy_status == VSM_ST_READY ? phase::offered : phase::idle;
    p.attach_corr = ready.attach_corr;
    p.offered_in = events;
    if (p.now == phase::idle)
        return;
    const std::string comes = ebcdic_text(ready.tp_name, sizeof ready.tp_name);
    const std::set<std::string>& names = registered[p.client];
    if (is_honest(p) && !(p.wants ? p.wants->empty() || *p.wants == comes : names.empty() || names.contains(comes)))
        wrong("an attach was offered to a program of another name");
}

// All conversations of an LU are known but those of the vandal.
void simulation::take_lu_status(const player& p, const issued& verb, const u8* block)
{
    std::size_t known = 0;
    for (const player& each : players)
        known += is_honest(each) && each.at_server == p.at_server ? each.talks.size() : 0;
    const u32 told = load<u16>(block, offsetof(appc_get_lu_status, active_sess));
    const bool none = block[offsetof(appc_get_lu_status, local_zero_sess)] != 0;
    if (is_honest(p) && ((verb.type == 'X' ? told != 0 : told < known || told > node.counts().sides) ||
                         (told == 0) != (block[offsetof(appc_get_lu_status, zero_sess)] != 0) || (none && known != 0)))
        wrong("an LU does not know its conversations");
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
        if (is_honest(p))
            wrong("an answer that no verb waits for");
        return;
    }
    const issued verb = answered->second;
    note(p, "gets", opcode, verb);
    p.waiting.erase(answered);
    if (verb.about != nullptr && opcode != ALLOCATE && opcode != SEND_CONVERSATION) {
        take_conversation_answer(p, verb, frame);
        if (opcode == DEALLOCATE && verb.type == 1 && last == rc{})
            p.forgets.insert(number);
    } else if (opcode == DEALLOCATE) {
        if (last != rc{PARAMETER_CHECK, APPC_SEC_BAD_CONV_ID} && p.client != VANDAL)
            wrong("a program ended the conversation of another");
    } else if (last != rc{}) {
        return;
    } else if (opcode == GET_LU_STATUS) {
        take_lu_status(p, verb, block);
    } else if (opcode == SEND_CONVERSATION) {
        verb.about->ends[0].of = &p;
        verb.about->ends[0].over = true;
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
            p.now = phase::misled;  // the vandal's work, not a talk
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
    if (one_of(verb.opcode, {SEND_DATA, SEND_EXPEDITED_DATA}) && verb.at_once && was_refused)
        --self.sent[verb.opcode == SEND_EXPEDITED_DATA];
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
    if (receives(verb.opcode) || verb.opcode == RECEIVE_EXPEDITED_DATA)
        take_received(t, verb.which, frame);
    if (verb.opcode == SEND_ERROR) {  // drops what is on its way
        self.received[0] = other.sent[0];
        self.offset[0] = 0;
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

// Whether that is what the other end sent next, a part or the end of it, or a stream over several records.
bool simulation::take_data(talk& t, u32 which, u32 expedited, std::span<const u8> came, bool stream)
{
    talk_end& self = t.ends[which];
    bool more = !stream || !came.empty();
    while (more) {
        const bytes data = make_data(t, 1 - which, expedited, self.received[expedited] + 1);
        u32& offset = self.offset[expedited];
        const std::size_t part = std::min(came.size(), data.size() - offset);
        if (self.received[expedited] >= t.ends[1 - which].sent[expedited] ||
            !std::equal(came.begin(), came.begin() + static_cast<std::ptrdiff_t>(part), data.begin() + offset))
            return false;
        came = came.subspan(part);
        offset += static_cast<u32>(part);
        if (offset == data.size()) {
            ++self.received[expedited];
            offset = 0;
        }
        more = stream && !came.empty();
    }
    return came.empty();
}

void simulation::take_received(talk& t, u32 which, const got& frame)
{
    talk_end& self = t.ends[which];
    const u32 sent = t.ends[1 - which].sent[0];
    const u8* const block = frame.content.data() + HEADER;
    const auto data = std::span(frame.content).subspan(load<u32>(frame.content.data(), offsetof(verb_message_header, buf_len)));
    if (load<u16>(block, 0) == RECEIVE_EXPEDITED_DATA) {
        const bool sound = take_data(t, which, 1, data, false);
        if (t.checked && (!sound || (self.offset[1] != 0 && block[26] == 0)))
            wrong("an expedited message did not arrive as it was sent");
        return;
    }
    const u16 what = load<u16>(block, 24);
    if ((what & (APPC_WR_DATA_COMPLETE | APPC_WR_DATA_INCOMPLETE | APPC_WR_DATA)) != 0) {
        const bool sound = take_data(t, which, 0, data, (what & APPC_WR_DATA) != 0) && load<u16>(block, 32) == data.size();
        const bool incomplete = (what & APPC_WR_DATA_INCOMPLETE) != 0;
        if (t.checked && (!sound || (incomplete && self.offset[0] == 0 && !data.empty()) ||
                          ((what & APPC_WR_DATA_COMPLETE) != 0 && self.offset[0] != 0) ||
                          (incomplete && data.size() != load<u16>(block, 30))))
            wrong("a record did not arrive as it was sent");
    }
    const u16 status = what & (APPC_WR_SEND | APPC_WR_CONFIRM | APPC_WR_CONFIRM_SEND | APPC_WR_CONFIRM_DEALLOCATE);
    if (status != 0 && t.checked && (self.received[0] != sent || self.offset[0] != 0))
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
    if (t.checked && receives(verb.opcode) && (self.received[0] != t.ends[1 - which].sent[0] || self.offset[0] != 0))
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
    for (const player& each : players) {
        if (is_honest(each) && !each.forgets.empty())
            wrong("an implied forget did not follow its DEALLOCATE");
        for (const auto& [number, verb] : each.waiting) {
            const bool over = verb.about != nullptr && verb.opcode != ALLOCATE && verb.about->ends[verb.which].over;
            if (each.client != VANDAL && (!may_wait(verb.opcode) || over))
                wrong("verb " + std::to_string(verb.opcode) + " was not answered");
        }
    }
}

// Nothing is kept beyond its use. What the vandal has cannot be known exactly.
void simulation::check_counts()
{
    const record_counts kept = node.counts();
    record_counts known;
    u32 names = 0;
    bool vandal_is_here = false;
    for (const player& each : players) {
        known.paths += each.now >= phase::starting;
        vandal_is_here = vandal_is_here || (!is_honest(each) && each.now >= phase::starting);
        if (is_honest(each)) {
            known.tps += each.now == phase::running || each.now == phase::misled;
            known.sides += static_cast<u32>(each.talks.size()) + (each.now == phase::misled);
            known.announcements += each.now == phase::announced;
        }
    }
    for (client_id client = 1; client < VANDAL; ++client)
        names += static_cast<u32>(registered[client].size());
    if (kept.unreachable != 0 || kept.lost_paths != 0)
        wrong("the node keeps records that nobody can reach");
    if (kept.paths != known.paths || kept.tps < known.tps || kept.names < names || kept.announcements < known.announcements ||
        kept.sides < known.sides ||
        (!vandal_is_here && (kept.tps > known.tps || kept.sides > known.sides + kept.attaches)))
        wrong("the node keeps other records than its clients use");
}

// All clients go, and the attaches that still wait run out of time.
bool simulation::leave()
{
    for (client_id client = 1; client <= CLIENTS; ++client)
        end_client(client);
    time(now_ms += 40'000);
    if (node.counts() != record_counts{} || node.deadline_ms())
        wrong("the node keeps records of clients that are gone");
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
    const u32 events = setting("TESSALY_SIMULATION_EVENTS", 200'000);
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

}  // namespace

}  // namespace tessaly::node::playing
