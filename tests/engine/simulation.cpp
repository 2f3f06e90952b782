// What the clients of the simulation do.
#include "tests/engine/simulation.h"

#include <cstring>

namespace tessaly::node::playing {

namespace {

constexpr const char* NAMES[] = {"ONE", "TWO", "", ""};
constexpr u16 LENGTHS[] = {0, 1, 7, 100, 100, 0xFFFF, 0xFFFF, 0xFFFF};
constexpr u16 INQUIRIES[] = {GET_TYPE, GET_STATE, GET_ATTRIBUTES, TEST_RTS, REQUEST_TO_SEND, FLUSH};

template <typename Verb>
Verb about(u16 opcode, u32 conv)
{
    Verb verb{};
    verb.opcode = opcode;
    verb.opext = APPC_MAPPED_CONVERSATION;
    verb.conv_id = conv;
    return verb;
}

}  // namespace

bytes make_record(const talk& t, u32 which, u32 sequence)
{
    const u32 seed = t.number * 2654435761u ^ (sequence * 40503u + which);
    const u32 small = (seed >> 16) % 200;
    bytes data(t.number % 40 == 0 ? 60000 + small : small);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<u8>((seed >> (i % 3 * 8)) + i);
    return data;
}

simulation::simulation(u32 seed) : random(seed)
{
    for (u32 i = 0; i < CLIENTS * PLAYERS_OF_EACH; ++i)
        players.emplace_back(*this, 1 + i % CLIENTS);
}

bool simulation::run(u32 count)
{
    for (u32 i = 0; i < count && fault.empty(); ++i) {
        ++events;
        one_event();
    }
    return fault.empty();
}

void simulation::one_event()
{
    if (once_in(200))
        refuse_next = 1;
    if (once_in(100)) {
        now_ms += any(once_in(5) ? 40'000 : 5'000);
        time(now_ms);
        look_at_frames();
    } else if (once_in(1000)) {
        end_client(1 + any(CLIENTS));
    } else if (once_in(40) && !talks.empty()) {
        talk& t = talks[talks.size() - 1 - any(std::min<u32>(20, static_cast<u32>(talks.size())))];
        if (t.checked && t.taken && !ends_agree(t))
            wrong("the ends of a conversation disagree");
    } else {
        act(players[any(static_cast<u32>(players.size()))]);
    }
}

void simulation::act(player& p)
{
    switch (p.now) {
    case phase::idle: begin(p); return;
    case phase::announced:
        if (once_in(10))
            tell(p.client, cancel_announce_datagram{{sizeof(cancel_announce_datagram), DATAGRAM_CANCEL_ANNOUNCE}, p.handle});
        return;
    case phase::offered: take_offer(p); return;
    case phase::starting:
    case phase::broken: end_path(p, frame_kind::path_closed); return;
    case phase::running: break;
    }
    if (once_in(60)) {
        give_cause(p, DEALLOC_ABEND);
        say(p, tp_ended(), {.opcode = TP_ENDED});
    } else if (once_in(60))
        end_path(p, once_in(2) ? frame_kind::path_closed : frame_kind::path_opened);
    else if (p.talks.empty() || (p.talks.size() < 4 && once_in(15)))
        allocate_one(p);
    else
        converse(p);
}

void simulation::begin(player& p)
{
    static_cast<program&>(p) = program{*this, p.client};
    if (once_in(2)) {
        announce_datagram content{};
        content.header = {sizeof content, DATAGRAM_ANNOUNCE};
        content.src_corr = p.handle;
        const std::string_view program_name = NAMES[any(4)];
        name(content.tp_name.name, program_name);
        content.tp_name.length = static_cast<u32>(program_name.size());
        p.now = phase::announced;
        tell(p.client, content);
        return;
    }
    p.now = phase::starting;
    p.open();
    appc_tp_started verb{};
    verb.opcode = TP_STARTED;
    alias(verb.lu_alias, "");
    say(p, verb, {.opcode = TP_STARTED});
}

void simulation::take_offer(player& p)
{
    const u32 attach_corr = p.attach_corr;
    if (once_in(8)) {
        p.now = phase::idle;
        if (once_in(2))
            tell(p.client, attach_response_datagram{{16, DATAGRAM_ATTACH_RESPONSE}, ATTACH_REFUSED, attach_corr, NODE_ADDRESS});
        return;  // otherwise the attach is lost
    }
    p.now = phase::starting;
    p.open();
    appc_receive_allocate verb{};
    verb.opcode = RECEIVE_ALLOCATE;
    verb.conv_id = attach_corr;
    say(p, verb, {.opcode = RECEIVE_ALLOCATE});
    if (p.now != phase::running)
        return;
    if (once_in(5)) {  // not confirmed, and perhaps gone at once
        if (once_in(2))
            end_path(p, frame_kind::path_closed);
        return;
    }
    p.talks.front().first->taken = true;
    tell(p.client, attach_response_datagram{{16, DATAGRAM_ATTACH_RESPONSE}, ATTACH_TAKEN, attach_corr, NODE_ADDRESS});
}

void simulation::allocate_one(player& p)
{
    talks.push_back({.number = static_cast<u32>(talks.size()) + 1});
    talk& t = talks.back();
    appc_allocate verb = allocate(once_in(20) ? "NOBODY" : NAMES[any(2)], static_cast<u8>(any(4) != 0));
    verb.security = APPC_SECURITY_PGM;  // the user identifier tells the partner which talk this is
    name(verb.user_id, std::to_string((TALK_BASE + t.number) * TALK_FACTOR));
    say(p, verb, {.opcode = ALLOCATE, .about = &t});
    t.checked = p.client != VANDAL && t.ends[0].of != nullptr;
}

void simulation::send_records(player& p, talk& t, u32 which)
{
    const bool flood = t.number % 40 == 0 && once_in(3);
    const u8 type = flood || any(3) != 0 ? u8{APPC_SEND_NONE} : static_cast<u8>(any(8));
    for (u32 i = 0; i < (flood ? 300u : 1u); ++i) {
        ++t.ends[which].sent;
        if (type >= APPC_SEND_DEALLOC_FLUSH)
            t.ends[1 - which].may_learn.insert(type == APPC_SEND_DEALLOC_ABEND ? DEALLOC_ABEND : DEALLOC_NORMAL);
        last = {};
        say(p, send_data(t.ends[which].conv, type), {.opcode = SEND_DATA, .type = type, .about = &t, .which = which},
            make_record(t, which, t.ends[which].sent));
        if (last != rc{} || t.ends[which].over || p.now != phase::running)
            return;
    }
}

void simulation::converse(player& p)
{
    const auto [in, which] = p.talks[any(static_cast<u32>(p.talks.size()))];
    talk& t = *in;
    const u32 conv = t.ends[which].conv;
    issued verb{.about = &t, .which = which};
    const auto plainly = [&](u16 opcode) {
        verb.opcode = opcode;
        say(p, plain(opcode, conv), verb);
    };
    const auto receiving = [&](u16 opcode) {
        verb.opcode = opcode;
        say(p, receive(conv, LENGTHS[any(8)], static_cast<u8>(any(2)), opcode), verb);
    };
    const u32 sensible = t.ends[which].asked ? 12 : t.ends[which].has_turn ? 0 : 5 + any(6);
    switch (once_in(2) ? sensible : any(22)) {
    default: send_records(p, t, which); return;
    case 5:
    case 6:
    case 7: receiving(RECEIVE_AND_WAIT); return;
    case 8:
    case 9: receiving(RECEIVE_IMMEDIATE); return;
    case 10: receiving(RECEIVE_AND_POST); return;
    case 11: verb.opcode = CONFIRM; say(p, confirm(conv), verb); return;
    case 12:
    case 13: plainly(CONFIRMED); return;
    case 14:
        verb.opcode = PREPARE_TO_RECEIVE;
        say(p, prepare_to_receive(conv, static_cast<u8>(any(3)), static_cast<u8>(any(2))), verb);
        return;
    case 15: verb.opcode = SEND_ERROR; say(p, send_error(conv, static_cast<u8>(any(2))), verb); return;
    case 16: {
        appc_deallocate end = deallocate(conv, static_cast<u8>(any(4)));
        end.format = static_cast<u8>(any(2));
        end.forget_callback = end.format;
        verb.opcode = DEALLOCATE;
        verb.type = end.format;
        t.ends[1 - which].may_learn.insert(end.dealloc_type == APPC_DEALLOC_TYPE_ABEND ? DEALLOC_ABEND : DEALLOC_NORMAL);
        say(p, end, verb);
        return;
    }
    case 17:
        if (!once_in(4))
            return;
        t.ends[1 - which].may_learn.insert(DEALLOC_ABEND);
        plainly(CANCEL_CONV);
        return;
    case 18:
        verb.opcode = INQUIRIES[any(6)];
        say(p, about<appc_get_attributes>(verb.opcode, conv), verb);
        return;
    case 19: {
        verb.opcode = any(2) != 0 ? u16{RECEIVE_EXPEDITED_DATA} : u16{TEST_RTS_AND_POST};
        auto beside = about<appc_receive_expedited_data>(verb.opcode, conv);
        beside.rtn_ctl = verb.opcode == RECEIVE_EXPEDITED_DATA && any(2) != 0;
        say(p, beside, verb);
        return;
    }
    case 20: {
        const talk& other = talks[any(static_cast<u32>(talks.size()))];
        if (other.ends[0].of != &p && other.ends[1].of != &p)
            say(p, deallocate(other.ends[any(2)].conv, APPC_DEALLOC_TYPE_ABEND), {.opcode = DEALLOCATE});
        return;
    }
    case 21: {
        const bytes data(any(90), 0x55);
        auto beside = about<appc_send_expedited_data>(SEND_EXPEDITED_DATA, conv);
        beside.dlen = static_cast<u16>(data.size());
        verb.opcode = SEND_EXPEDITED_DATA;
        say(p, beside, verb, data);
        return;
    }
    }
}

// A bit here, a length there.
void simulation::spoil(verb_bytes& message)
{
    auto* const header = reinterpret_cast<u8*>(&message.header);
    for (u32 times = 1 + any(3); times > 0; --times)
        switch (any(5)) {
        case 0: header[any(u32{sizeof message.header})] ^= static_cast<u8>(1u << any(8)); break;
        case 1: message.block.resize(any(250)); break;
        case 2: message.data.resize(any(100)); break;
        case 3: message.header.dest_corr = any(0xFFFFFFFF); break;
        default:
            if (!message.block.empty())
                message.block[any(static_cast<u32>(message.block.size()))] ^= static_cast<u8>(1u << any(8));
        }
    if (once_in(2)) {  // consistent in itself at least
        message.header.buf_len = static_cast<u32>(sizeof message.header + message.block.size());
        message.header.msg_len = message.header.buf_len + static_cast<u32>(message.data.size());
    }
}

template <typename Verb>
void simulation::say(player& p, Verb verb, issued of, std::span<const u8> data)
{
    verb_bytes message = p.compose(&verb, data);
    const u32 number = message.header.pend_handle;
    p.waiting[number] = of;
    if (of.which == 1)
        of.about->taken = true;  // who uses it has it
    if (p.client == VANDAL && once_in(6))
        spoil(message);
    note(p, "says", verb.opcode, of);
    p.send(message);
    look_at_frames();
    if (const auto unanswered = p.waiting.find(number); unanswered != p.waiting.end())
        unanswered->second.at_once = false;
}

template <typename Datagram>
void simulation::tell(client_id client, Datagram content)
{
    if (client == VANDAL && once_in(4))
        reinterpret_cast<u8*>(&content)[any(u32{sizeof content})] ^= static_cast<u8>(1u << any(8));
    datagram(client, content);
    look_at_frames();
}

// The path goes, or comes again under the same number.
void simulation::end_path(player& p, frame_kind how)
{
    note(p, "closes its path", 0, {});
    give_cause(p, CONV_FAILURE_NO_RETRY);
    forget_path(p);
    p.now = how == frame_kind::path_closed ? phase::idle : phase::broken;
    feed({.kind = how, .client = p.client, .path = p.path});
    look_at_frames();
}

void simulation::end_client(client_id client)
{
    for (player& each : players)
        if (each.client == client) {
            give_cause(each, CONV_FAILURE_NO_RETRY);
            forget_path(each);
            each.now = phase::idle;
            each.path = each.handle = 0;
        }
    client_gone(client);
    look_at_frames();
}

// Both read all there is; then one has the turn, or asks and the other is to answer, or both are through.
bool simulation::ends_agree(talk& t)
{
    for (const talk_end& each : t.ends)
        if (each.of == nullptr)
            return true;
    refuse_next = 0;
    drain(t, 0);
    drain(t, 1);
    const std::string both{drain(t, 0), drain(t, 1)};
    // With long locks PREPARE_TO_RECEIVE still waits when the partner has the turn.
    for (const char* good : {"SR", "RS", "Sr", "rS", "qC", "Cq", "Sq", "qS", "--"})
        if (both == good)
            return true;
    wrong("the ends are " + both);
    return false;
}

char simulation::drain(talk& t, u32 which)
{
    for (u32 verbs = 0; verbs < 1000; ++verbs) {
        talk_end& self = t.ends[which];
        if (self.over)
            return '-';
        for (const auto& [number, verb] : self.of->waiting)
            switch (verb.about == &t ? verb.opcode : u16{0}) {
            case RECEIVE_AND_WAIT:
            case RECEIVE_AND_POST: return 'r';
            case PREPARE_TO_RECEIVE:
            case CONFIRM:
            case DEALLOCATE:
            case SEND_DATA: return 'q';
            default: break;
            }
        say(*self.of, receive(self.conv, 0xFFFF, 0, RECEIVE_IMMEDIATE), {RECEIVE_IMMEDIATE, 0, &t, which});
        if (last.primary == UNSUCCESSFUL)
            return 'R';
        if (last.primary != STATE_CHECK)
            continue;
        say(*self.of, plain(FLUSH, self.conv), {FLUSH, 0, &t, which});
        if (last.primary == OK)
            return 'S';
        if (last.primary == STATE_CHECK && !t.ends[1 - which].over)
            return 'C';
        if (last.primary == STATE_CHECK)  // who asked is gone, which the answer tells
            say(*self.of, plain(CONFIRMED, self.conv), {CONFIRMED, 0, &t, which});
    }
    return '?';
}

}  // namespace tessaly::node::playing
