// The node's side of a program: sound, spoilt and made-up messages, and what breaks.
#include "fuzz/player.h"

#include "verbs/catalogue.h"
#include "wire/tp_server_datagrams.h"

#include <iterator>

namespace tessaly::fuzz {

using namespace tessaly::test;

namespace {

constexpr u32 HEADER = sizeof(verb_message_header);
constexpr u32 BUF_LEN = offsetof(verb_message_header, buf_len), MSG_LEN = offsetof(verb_message_header, msg_len);

constexpr u16 CODES[] = {OK, OK, OK, PARAMETER_CHECK, STATE_CHECK, ALLOCATION_ERROR, DEALLOC_NORMAL, UNSUCCESSFUL, CANCELLED,
                         COMMS_SUBSYSTEM_ABENDED};

bool receives(u16 opcode)
{
    return find_verb(opcode)->received_into != 0;
}

}  // namespace

const sent_verb* player::some_sent()
{
    if (node_.sent.empty())
        return nullptr;
    const u32 back = in_.below(8) % static_cast<u32>(node_.sent.size());
    return &node_.sent[node_.sent.size() - 1 - back];
}

u32 player::some_path()
{
    if (node_.paths.empty())
        return 0;
    return std::prev(node_.paths.end(), 1 + static_cast<i32>(in_.below(4) % node_.paths.size()))->first;
}

// A runtime lets through only what is as long as it says, and cuts it there; anything else breaks the path.
void player::send_message(u32 path, bytes message)
{
    const u32 buf_len = message.size() < HEADER ? 0 : load<u32>(message.data(), BUF_LEN);
    const u32 msg_len = message.size() < HEADER ? 0 : load<u32>(message.data(), MSG_LEN);
    if (path == 0)
        return;
    if (buf_len < HEADER || msg_len < buf_len || message.size() < msg_len)
        return node_.loses_path(path);
    message.resize(msg_len);
    message.shrink_to_fit();
    node_.queue.push_back({NODE_EVENT_IPS, path, std::move(message)});
    if (!queues_)
        node_.deliver();
}

void player::spoil(bytes& message)
{
    for (u32 times = 1 + in_.below(4); times != 0; --times) {
        // Where it hurts: in the block, and in the fields of the header that somebody reads.
        constexpr u16 fields[] = {offsetof(verb_message_header, dest_corr), offsetof(verb_message_header, src_corr),
                                  offsetof(verb_message_header, pend_handle), BUF_LEN, MSG_LEN, 112, 114, 115};
        const u32 at = in_.below(2) == 0 ? in_.one_of(fields) : HEADER + in_.number<u8>();
        if (at < message.size())
            message[at] = in_.number<u8>();
    }
    if (in_.below(4) == 0) {
        message.resize(HEADER + in_.number<u8>());
        store(message.data(), BUF_LEN, static_cast<u32>(message.size()));
        store(message.data(), MSG_LEN, static_cast<u32>(message.size()));
    }
}

void player::answer(bool spoilt)
{
    const sent_verb* sent = some_sent();
    if (sent == nullptr)
        return;
    if (sent->opcode() == NAP_EXTRACT_PIP)
        return answer_pip();
    reply how{.primary = in_.one_of(CODES), .secondary = in_.below(8)};
    const u16 opcode = sent->opcode();
    if (receives(opcode)) {
        how.data = in_.field(in_.below(64));
        const u16 told = static_cast<u16>(in_.below(8) == 0 ? in_.number<u16>() : how.data.size());
        how.fill = [told](u8* block) { store(block, 32, told); };
    }
    bytes message = node_.answer_to(*sent, how);
    const u32 kind = in_.below(8);
    if (kind == 0)
        store<u16>(message.data(), HEADER, IMPLIED_FORGET);
    else if (kind == 1)
        store(message.data(), HEADER, any_opcode());
    if (spoilt)
        spoil(message);
    send_message(in_.below(8) == 0 ? some_path() : sent->path, std::move(message));
}

void player::send_raw()
{
    bytes message = in_.field(HEADER + in_.number<u8>());
    const u32 length = static_cast<u32>(message.size());
    store(message.data(), offsetof(verb_message_header, dest_corr), some_tp());
    if (const sent_verb* sent = some_sent(); sent != nullptr && in_.below(4) != 0)
        store(message.data(), offsetof(verb_message_header, pend_handle), sent->header().pend_handle);
    store(message.data(), BUF_LEN, std::min(length, HEADER + in_.number<u8>()));
    store(message.data(), MSG_LEN, length);
    send_message(some_path(), std::move(message));
}

void player::send_datagram()
{
    const bool raw = in_.below(4) == 0;
    bytes datagram = in_.field(raw ? 4u + in_.below(100) : sizeof(appl_ready_datagram));
    store(datagram.data(), 0, static_cast<u16>(datagram.size()));
    store<u16>(datagram.data(), 2, DATAGRAM_APPL_READY);
    if (!raw)
        store(datagram.data(), offsetof(appl_ready_datagram, app_rdy_status), in_.below(4));
    if (raw && in_.below(2) == 0)
        store(datagram.data(), 2, in_.number<u16>());
    else if (datagram.size() >= 12)
        store(datagram.data(), offsetof(appl_ready_datagram, tp_handle), some_tp());
    node_.queue.push_back({NODE_EVENT_DATAGRAM, 0, std::move(datagram)});
    if (!queues_)
        node_.deliver();
}

void player::lose_something()
{
    const u32 path = some_path();
    const u32 kind = in_.below(8);
    if (kind == 0)
        return node_.reports(in_.number<u8>() % 16 + 3);  // no event
    if (kind == 1)
        return node_.reports(NODE_EVENT_TERMINATED);
    if (kind == 2)
        return fork();
    if (path == 0)
        return;
    if (kind < 5)
        return node_.loses_path(path);
    if (kind < 7)
        return node_.abends(path, some_tp());
    const u32 what = in_.below(3);
    node_.before_data = [this, path, what, tp = some_tp()] {
        const scripted_node::event events[] = {{NODE_EVENT_PATH_FAILURE, path, {}}, scripted_node::abend_of(path, tp),
                                               {NODE_EVENT_TERMINATED, 0, {}}};
        node_.interrupts_with(events[what]);
    };
}

// The child goes on with the thread that forked: none that waits for a verb.
void player::fork()
{
    if (waiting_ != 0)
        return;
    node_.interrupts_with({NODE_EVENT_FORKED, 0, {}});
    std::erase_if(held_, [](const auto& each) { return each.second.accepted; });
}

void player::change_the_world()
{
    switch (in_.below(8)) {
    case 0: queues_ = true; break;
    case 1:
    case 2:
        queues_ = false;
        node_.deliver();
        break;
    case 3: node_.refuse_nothing(); break;
    case 4:
    case 5: {
        const u32 which = in_.below(11);
        const auto operation = which < 10 ? std::optional{static_cast<may_fail>(which)} : std::nullopt;
        const u32 nth = 1 + in_.below(8);
        node_.refuse(operation, nth, in_.below(4) == 0, static_cast<u16>(1 + in_.below(19)));
        break;
    }
    case 6: node_.answers(any_opcode(), {.primary = in_.one_of(CODES)}); break;
    default: node_.stays_silent(any_opcode()); break;
    }
}

}  // namespace tessaly::fuzz
