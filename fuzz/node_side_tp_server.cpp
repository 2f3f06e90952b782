// The node's side of a TP server's program: requests, answers with elements, PIP data; sound, spoilt and made up.
#include "fuzz/player.h"

#include "wire/ltv.h"
#include "wire/tp_server_datagrams.h"

namespace tessaly::fuzz {

using namespace tessaly::test;

namespace {

constexpr u32 CORRELATOR_OF_UPDATE = offsetof(update_tp_info_datagram, correlator);
constexpr u32 CORRELATOR_OF_QUERY = offsetof(query_dload_datagram, correlator);

void append(bytes& to, const bytes& more)
{
    to.insert(to.end(), more.begin(), more.end());
}

// A header that is right but for what the input spoils.
bytes attach_header(input& in)
{
    bytes header = in.field(FMH5_FIXED_BYTES);
    if (in.below(4) != 3)
        header[FMH5_FLAGS] |= FMH5_PIP_PRESENT;
    for (u32 parts = 1 + in.below(3); parts != 0; --parts) {
        const bytes part = in.field(in.below(12));
        header.push_back(in.below(8) == 7 ? in.number<u8>() : static_cast<u8>(part.size()));
        append(header, part);
    }
    header[0] = in.below(8) == 7 ? in.number<u8>() : static_cast<u8>(header.size());
    if (in.below(8) == 7)
        header.resize(in.below(static_cast<u32>(header.size()) + 1));
    return header;
}

bytes element(input& in)
{
    static constexpr u16 types[] = {LTV_LU_ALIAS,      LTV_FQPLU_NAME,    LTV_MODE_NAME,
                                    LTV_ATTACH_HEADER, LTV_ATTACH_HEADER, LTV_ATTACH_HEADER};
    const u16 type = in.below(8) == 7 ? in.number<u16>() : in.one_of(types);
    const bytes value = type == LTV_ATTACH_HEADER ? attach_header(in) : in.field(in.below(24));
    bytes made(LTV_HEADER_BYTES);
    const u32 length = LTV_HEADER_BYTES + static_cast<u32>(value.size());
    put_big_endian_16(made.data(), in.below(8) == 7 ? in.number<u16>() : static_cast<u16>(length));
    put_big_endian_16(made.data() + 2, type);
    append(made, value);
    return made;
}

template <typename Datagram>
bytes as_message(const Datagram& datagram)
{
    const auto* start = reinterpret_cast<const u8*>(&datagram);
    return {start, start + sizeof datagram};
}

}  // namespace

// Of the verb that asked last, or whichever.
u32 player::some_correlator(u16 asked_with, u32 at)
{
    if (in_.below(8) == 7)
        return in_.below(16);
    for (auto sent = node_.datagrams.rbegin(); sent != node_.datagrams.rend(); ++sent)
        if (load<u16>(sent->data(), offsetof(datagram_header, type)) == asked_with)
            return load<u32>(sent->data(), at);
    return in_.below(16);
}

// A runtime lets through only what is as long as it says.
void player::say_to_server(bytes datagram, u16 type)
{
    if (in_.below(8) == 7)
        datagram.resize(sizeof(datagram_header) +
                        in_.below(static_cast<u32>(datagram.size()) - sizeof(datagram_header) + 1));
    const u32 length = static_cast<u32>(datagram.size());
    store(datagram.data(), 0, static_cast<u16>(in_.below(8) == 7 ? in_.number<u16>() % (length + 1) : length));
    store(datagram.data(), 2, type);
    datagram.shrink_to_fit();
    node_.queue.push_back({NODE_EVENT_DATAGRAM, 0, std::move(datagram)});
    if (!queues_)
        node_.deliver();
}

void player::answer_query()
{
    static constexpr u32 statuses[] = {0, 0, 0, 0, QUERY_DLOAD_ATTACH_GONE, QUERY_DLOAD_BAD_ATTACH, 7};
    query_dload_rsp_datagram answer{};
    answer.correlator = some_correlator(TPS_MSG_QUERY_DLOAD, CORRELATOR_OF_QUERY);
    answer.status = in_.one_of(statuses);
    answer.attach = {in_.number<u8>(), 0x01010101 + in_.below(3)};
    bytes message = as_message(answer);
    for (u32 elements = in_.below(5); elements != 0; --elements)
        append(message, element(in_));
    say_to_server(std::move(message), TPS_MSG_QUERY_DLOAD_RSP);
}

void player::answer_update()
{
    static constexpr u32 statuses[] = {UPDATE_TP_DONE, UPDATE_TP_DONE, UPDATE_TP_NOT_DEFINED, UPDATE_TP_ALREADY_DEFINED,
                                       5};
    update_tp_rsp_datagram answer{};
    answer.status = in_.one_of(statuses);
    answer.tp_reg_id = in_.number<u8>();
    answer.correlator = some_correlator(TPS_MSG_UPDATE_TP_INFO, CORRELATOR_OF_UPDATE);
    say_to_server(as_message(answer), TPS_MSG_UPDATE_TP_RSP);
}

void player::ask_to_start()
{
    start_appl_req_datagram request{};
    request.server_handle = some_tp();
    request.start_value = in_.number<u8>();
    request.start_id = {in_.number<u32>(), 0x01010101};
    say_to_server(as_message(request), TPS_MSG_START_APPL_REQ);
}

void player::answer_pip()
{
    const auto asked =
        std::ranges::find(node_.sent.rbegin(), node_.sent.rend(), u16{NAP_EXTRACT_PIP}, &sent_verb::opcode);
    if (asked == node_.sent.rend() || asked->message.size() != sizeof(verb_signal))
        return;
    bytes message = asked->message;
    auto& answer = *reinterpret_cast<verb_signal*>(message.data());
    const bytes data = in_.field(in_.below(64));
    answer.header.buf_len = sizeof answer;
    answer.header.msg_len = static_cast<u32>(message.size() + data.size());
    answer.block.primary_rc = in_.below(4) == 3 ? in_.number<u16>() : u16{OK};
    answer.block.pip_len = static_cast<u16>(in_.below(4) == 3 ? in_.number<u16>() : data.size());
    if (in_.below(8) == 7)
        answer.header.pend_handle = in_.below(16);
    append(message, data);
    if (in_.below(4) == 3)
        spoil(message);
    send_message(asked->path, std::move(message));
}

void player::tell_server()
{
    switch (in_.below(16)) {
    case 0:
    case 1: return ask_to_start();
    case 2: return say_to_server(bytes(sizeof(datagram_header)), TPS_MSG_TP_FILE_STATUS);
    case 3:
    case 4: return answer_update();
    case 5:
    case 6:
    case 7:
    case 8:
    case 9: return answer_query();
    case 10:
    case 11:
    case 12:
    case 13: return answer_pip();
    case 14: {
        static constexpr u16 types[] = {TPS_MSG_START_APPL_REQ, TPS_MSG_TP_FILE_STATUS, TPS_MSG_UPDATE_TP_RSP,
                                        TPS_MSG_QUERY_DLOAD_RSP};
        bytes made_up = in_.field(sizeof(datagram_header) + in_.below(64));
        return say_to_server(std::move(made_up), in_.one_of(types));
    }
    default: return lose_something();
    }
}

}  // namespace tessaly::fuzz
