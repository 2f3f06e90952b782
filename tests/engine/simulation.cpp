// What the clients of the simulation do.
#include "tests/engine/simulation.h"

#include <cstring>

namespace tessaly::node::playing {

namespace {

constexpr const char* NAMES[] = {"ONE", "TWO", "", ""};
constexpr u16 LENGTHS[] = {0, 1, 7, 100, 100, 0xFFFF, 0xFFFF, 0xFFFF};
constexpr u8 BASIC_ENDS[] = {0, 1, 2, 4, 5, 6};  // of DEALLOCATE
constexpr u16 CODES_OF_ENDS[] = {DEALLOC_NORMAL, DEALLOC_NORMAL, DEALLOC_NORMAL, DEALLOC_ABEND,
                                 DEALLOC_ABEND_PROG, DEALLOC_ABEND_SVC, DEALLOC_ABEND_TIMER};
constexpr u16 INQUIRIES[] = {GET_TYPE, GET_STATE, GET_ATTRIBUTES, TEST_RTS, REQUEST_TO_SEND, FLUSH};

}  // namespace

bytes make_data(const talk& t, u32 which, u32 expedited, u32 sequence)
{
    const u32 seed = t.number * 2654435761u ^ (sequence * 40503u + which);
    const u32 small = (seed >> 16) % 200;
    const u32 much = t.type == APPC_BASIC ? 30000 : 60000;
    const u32 least = t.type == APPC_BASIC ? 2 : 0;
    bytes data(expedited != 0 ? 1 + small % 86 : t.number % 40 == 0 ? much + small : least + small);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<u8>((seed >> (i % 3 * 8)) + i);
    if (t.type == APPC_BASIC && expedited == 0) {
        data[0] = static_cast<u8>(data.size() / 256);
        data[1] = static_cast<u8>(data.size());
    }
    return data;
}

simulation::simulation(u32 seed) : random(seed), paces(seed % 2 == 0)
{
    configuration with;
    if (paces)
        with.unread_bytes = any(1000);
    node.configure(with);
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
        refuse_next = 1 + any(3);
    if (once_in(100)) {
        pass_time(any(once_in(5) ? 40'000 : 5'000));
    } else if (once_in(1000)) {
        end_client(1 + any(CLIENTS));
    } else if (once_in(40) && !talks.empty()) {
        talk& t = talks[talks.size() - 1 - any(std::min<u32>(20, static_cast<u32>(talks.size())))];
        if (t.checked && t.taken)
            ends_agree(t);
    } else {
        act(players[any(static_cast<u32>(players.size()))]);
    }
    if (once_in(4) && refuse_next == 0)
        refuse_an_offer();
    check_counts();
}

// One that has just come, so that it cannot have lost its meaning. Somebody else gets it, or it is over.
void simulation::refuse_an_offer()
{
    for (player& p : players)
        if (p.now == phase::offered && p.offered_in == events && is_honest(p)) {
            const u32 attaches = node.counts().attaches;
            const u32 offers_before = offers;
            p.now = phase::idle;
            tell(p.client, response(p.attach_corr, ATTACH_REFUSED));
            if (offers == offers_before && node.counts().attaches >= attaches)
                wrong("an attach that was refused waits for nobody");
            return;
        }
}

void simulation::pass_time(u32 for_ms)
{
    now_ms += for_ms;
    time(now_ms);
    look_at_frames();
    if (node.deadline_ms().value_or(now_ms + 1) <= now_ms)
        wrong("what was due has not happened");
    for (const player& each : players)
        for (const auto& [number, verb] : each.waiting)
            if (paces && is_honest(each) && for_ms >= 20 && verb.opcode == SEND_DATA && verb.type == APPC_SEND_NONE &&
                verb.about->number % 40 != 0)
                wrong("a sender waits for good");
}

void simulation::act(player& p)
{
    switch (p.now) {
    case phase::idle: begin(p); return;
    case phase::announced:
        if (once_in(10))
            tell(p.client, cancellation(p.handle));
        return;
    case phase::offered: take_offer(p); return;
    case phase::starting:
    case phase::misled:
    case phase::broken: end_path(p, frame_kind::path_closed); return;
    case phase::running: break;
    }
    if (once_in(60)) {
        for (const auto& [t, which] : p.talks)
            t->ends[1 - which].may_learn.insert(abend_of(*t));
        say(p, tp_ended(), {.opcode = TP_ENDED});
    } else if (once_in(60))
        end_path(p, once_in(2) ? frame_kind::path_closed : frame_kind::path_opened);
    else if (once_in(30))
        ask_or_register(p);
    else if (p.talks.empty() || (p.talks.size() < 4 && once_in(15)))
        allocate_one(p);
    else
        converse(p);
}

void simulation::begin(player& p)
{
    static_cast<program&>(p) = program{*this, p.client};
    if (once_in(2)) {
        const std::string_view program_name = NAMES[any(4)];
        const bool cpic = once_in(3);
        p.wants = cpic ? std::nullopt : std::optional<std::string>(program_name);
        p.now = phase::announced;
        tell(p.client, announcement(p.handle, program_name, "", cpic));
        return;
    }
    p.at_server = false;
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
            tell(p.client, response(attach_corr, ATTACH_REFUSED));
        return;  // otherwise the attach is lost
    }
    p.now = phase::starting;
    p.at_server = true;
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
    tell(p.client, response(attach_corr, ATTACH_TAKEN));
}

void simulation::allocate_one(player& p)
{
    talks.push_back({.number = static_cast<u32>(talks.size()) + 1, .type = static_cast<u8>(any(2))});
    talk& t = talks.back();
    const char* const tp_name = once_in(20) ? "NOBODY" : NAMES[any(2)];
    const auto begin_with = [&](auto verb, std::span<const u8> data) {
        verb.security = APPC_SECURITY_PGM;  // the user identifier tells the partner which talk this is
        name(verb.user_id, std::to_string((TALK_BASE + t.number) * TALK_FACTOR));
        say(p, verb, {.opcode = verb.opcode, .about = &t}, data);
    };
    if (once_in(6)) {
        const bytes data = make_data(t, 0, 0, t.ends[0].sent[0] = 1);
        t.ends[1].may_learn.insert(DEALLOC_NORMAL);
        begin_with(send_conversation(tp_name, 0, data.size(), t.type), data);
    } else {
        begin_with(allocate(tp_name, static_cast<u8>(any(4) != 0), t.type), {});
    }
    t.checked = is_honest(p) && t.ends[0].of != nullptr;
}

void simulation::ask_or_register(player& p)
{
    const std::string program_name = NAMES[any(2)];
    std::set<std::string>& names = registered[p.client];
    switch (any(3)) {
    case 0: {
        auto verb = verb_of_tp<appc_get_lu_status>(GET_LU_STATUS);
        verb.plu_alias[0] = once_in(3) ? 'X' : ' ';  // nobody's, or any
        std::fill(verb.plu_alias + 1, std::end(verb.plu_alias), u8{' '});
        say(p, verb, {.opcode = GET_LU_STATUS, .type = verb.plu_alias[0]});
        return;
    }
    case 1: names.insert(program_name); tell(p.client, cpic_name(DATAGRAM_REGISTER_CPIC, program_name)); return;
    default: names.erase(program_name); tell(p.client, cpic_name(DATAGRAM_UNREGISTER_CPIC, program_name)); return;
    }
}

void simulation::send_records(player& p, talk& t, u32 which)
{
    const bool flood = t.number % 40 == 0 && once_in(3);
    const u8 type = flood || any(3) != 0 ? u8{APPC_SEND_NONE} : static_cast<u8>(any(8));
    for (u32 i = 0; i < (flood ? 300u : 1u); ++i) {
        const u32 sequence = ++t.ends[which].sent[0];
        if (type >= APPC_SEND_DEALLOC_FLUSH)
            t.ends[1 - which].may_learn.insert(type == APPC_SEND_DEALLOC_ABEND ? abend_of(t) : u16{DEALLOC_NORMAL});
        last = {};
        say(p, send_data(t.ends[which].conv, type), {.opcode = SEND_DATA, .type = type, .about = &t, .which = which},
            make_data(t, which, 0, sequence));
        if (t.checked && t.type == APPC_MAPPED && flood && (t.ends[which].sent[0] - t.ends[1 - which].received[0]) > 286)
            wrong("the node keeps any number of records");  // of 60000 bytes: 16 MiB and some
        if (last != rc{} || t.ends[which].over || p.now != phase::running)
            break;
    }
    if (flood && t.checked && t.taken)
        ends_agree(t);  // so that who waits for room gets it
}

void simulation::send_expedited(player& p, talk& t, u32 which)
{
    const bytes data = make_data(t, which, 1, ++t.ends[which].sent[1]);
    say(p, playing::send_expedited(t.ends[which].conv),
        {.opcode = SEND_EXPEDITED_DATA, .about = &t, .which = which}, data);
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
        appc_receive block = receive(conv, LENGTHS[any(8)], static_cast<u8>(any(2)), opcode);
        block.fill = t.type == APPC_BASIC && once_in(2) ? u8{APPC_FILL_BUFFER} : u8{APPC_FILL_LL};
        say(p, block, verb);
    };
    const u32 sensible = t.ends[which].asked ? 12 : t.ends[which].has_turn ? 0 : 5 + any(6);
    const u32 expedites = t.number % 4 == 0 && once_in(2) ? 19 + any(2) * 2 : 0;  // some talk much beside the flow
    // clang-format off
    switch (expedites != 0 ? expedites : once_in(2) ? sensible : any(22)) {
    default: send_records(p, t, which); return;
    case 5: case 6: case 7: receiving(RECEIVE_AND_WAIT); return;
    case 8: case 9: receiving(RECEIVE_IMMEDIATE); return;
    case 10: receiving(RECEIVE_AND_POST); return;
    case 11: verb.opcode = CONFIRM; say(p, confirm(conv), verb); return;
    case 12: case 13: plainly(CONFIRMED); return;
    case 14:
        verb.opcode = PREPARE_TO_RECEIVE;
        say(p, prepare_to_receive(conv, static_cast<u8>(any(3)), static_cast<u8>(any(2))), verb);
        return;
    case 15: verb.opcode = SEND_ERROR; say(p, send_error(conv, static_cast<u8>(any(2))), verb); return;
    case 16: {
        appc_deallocate end = deallocate(conv, t.type == APPC_BASIC ? BASIC_ENDS[any(6)] : static_cast<u8>(any(4)));
        end.format = static_cast<u8>(any(2));
        end.forget_callback = static_cast<u8>(any(2));
        verb.opcode = DEALLOCATE;
        verb.type = end.format == 1 && end.forget_callback != 0;
        t.ends[1 - which].may_learn.insert(CODES_OF_ENDS[end.dealloc_type]);
        say(p, end, verb);
        return;
    }
    case 17:
        if (!once_in(4))
            return;
        t.ends[1 - which].may_learn.insert(abend_of(t));
        plainly(CANCEL_CONV);
        return;
    case 18:
        verb.opcode = INQUIRIES[any(6)];
        say(p, conversation_verb<appc_get_attributes>(verb.opcode, conv, [](auto&) {}), verb);
        return;
    case 19: {
        verb.opcode = any(2) != 0 ? u16{RECEIVE_EXPEDITED_DATA} : u16{TEST_RTS_AND_POST};
        if (verb.opcode == TEST_RTS_AND_POST)
            say(p, test_rts(conv, verb.opcode), verb);
        else
            say(p, receive_expedited(conv, once_in(3) ? u16{5} : u16{100}, static_cast<u8>(any(2))), verb);
        return;
    }
    case 20: {
        const talk& other = talks[any(static_cast<u32>(talks.size()))];
        if (other.ends[0].of != &p && other.ends[1].of != &p)
            say(p, deallocate(other.ends[any(2)].conv, APPC_DEALLOC_TYPE_ABEND), {.opcode = DEALLOCATE});
        return;
    }
    case 21: send_expedited(p, t, which); return;
    }
    // clang-format on
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
    if (of.about != nullptr)
        verb.opext = of.about->type;
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
    bytes raw(sizeof content);
    std::memcpy(raw.data(), &content, raw.size());
    if (client == VANDAL && once_in(8))
        raw.resize(any(static_cast<u32>(raw.size()) + 9));
    feed({.kind = frame_kind::datagram, .client = client, .block = raw});
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
    registered[client].clear();
    client_gone(client);
    look_at_frames();
}

// Both read all there is; then one has the turn, or asks and the other is to answer, or both are through.
void simulation::ends_agree(talk& t)
{
    if (t.ends[0].of == nullptr || t.ends[1].of == nullptr)
        return;
    refuse_next = 0;
    drain(t, 0);
    drain(t, 1);
    const std::string both{drain(t, 0), drain(t, 1)};
    // With long locks PREPARE_TO_RECEIVE still waits when the partner has the turn.
    const auto good = {"SR", "RS", "Sr", "rS", "qC", "Cq", "Sq", "qS", "--"};
    if (std::find(good.begin(), good.end(), both) == good.end())
        wrong("the ends of a conversation are " + both);
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
