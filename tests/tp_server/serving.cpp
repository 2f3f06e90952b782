#include "tests/tp_server/serving.h"

namespace tessaly::test {

namespace {

serving_test* this_test = nullptr;

void serve(u32 event, void* data, u32 value)
{
    EXPECT_GE(the_node->lock_depth, 1u) << "a callback without the lock";
    this_test->server_calls.push_back({event, data == nullptr ? bytes{} : as_bytes(data, 8), value});
    if (const auto act = this_test->on_server_call)
        act();
}

u32 block_bytes(u16 opcode)
{
    switch (opcode) {
    case NAP_REGISTER_TP_SERVER: return 24;
    case NAP_UNREGISTER_TP_SERVER: return 16;
    case NAP_REGISTER_TP:
    case NAP_UNREGISTER_TP: return 124;
    case NAP_QUERY_ATTACH: return 140;
    default: return 28;
    }
}

}  // namespace

bytes element(u16 type, const bytes& value)
{
    bytes header(4);
    put_big_endian_16(&header[0], static_cast<u16>(value.size() + 4));
    put_big_endian_16(&header[2], type);
    return joined({header, value});
}

bytes attach_header(const bytes& name, const bytes& behind_the_name, u8 flags)
{
    bytes header = joined({{0, 5, 2, 0xFF, flags, 0xD0, 0, 1, 2, static_cast<u8>(name.size())}, name, behind_the_name});
    header[0] = static_cast<u8>(header.size());
    return header;
}

serving_test::serving_test()
{
    this_test = this;
}

// Without a server the TP server hears nothing of the node's end.
void serving_test::TearDown()
{
    on_server_call = nullptr;
    for (verb& each : verbs)
        each.on_call = nullptr;
    node.refuse_nothing();
    if (is_loaded())
        register_server();
    library_test::TearDown();
}

serving_test::~serving_test()
{
    this_test = nullptr;
    EXPECT_EQ(tps_main_cb, nullptr);
}

verb& serving_test::make(u16 opcode, u32 server)
{
    verb& made = library_test::make(opcode, 0, block_bytes(opcode));
    for (u32 i = 16; i < made.size; ++i)
        made.block()[i] = static_cast<u8>(i * 7 + 3);
    store(made.block(), 12, server);
    if (opcode == NAP_REGISTER_TP_SERVER) {
        made.as<appc_register_tp_server>().file_status_events = 0;
        made.as<appc_register_tp_server>().server_callback = serve;
    } else if (opcode == NAP_REGISTER_TP || opcode == NAP_UNREGISTER_TP) {
        auto& block = made.as<appc_register_tp>();
        std::memcpy(block.lu_alias, "APPL    ", 8);
        std::ranges::copy(ebcdic("NETA.LU*", 17), block.fqplu_name);
        block.tp_type = APPC_TP_NONQUEUED;
    } else if (opcode == NAP_QUERY_ATTACH) {
        auto& block = made.as<appc_query_attach>();
        block.pip_buf_len = block.attach_buf_len = 0;
        block.pip_buf = block.attach_buf = nullptr;
    }
    return made;
}

u32 serving_test::register_server(u8 file_status_events)
{
    verb& made = make(NAP_REGISTER_TP_SERVER);
    made.as<appc_register_tp_server>().file_status_events = file_status_events;
    EXPECT_EQ(wait_for(made).codes(), rc(OK));
    return made.as<appc_register_tp_server>().server_handle;
}

verb& serving_test::start_query(u32 server, u16 pip_buf_len, u16 attach_buf_len)
{
    verb& made = make(NAP_QUERY_ATTACH, server);
    auto& block = made.as<appc_query_attach>();
    pip = buffers.emplace_back(std::make_unique<u8[]>(pip_buf_len)).get();
    attach = buffers.emplace_back(std::make_unique<u8[]>(attach_buf_len)).get();
    block.pip_buf_len = pip_buf_len;
    block.pip_buf = pip;
    block.attach_buf_len = attach_buf_len;
    block.attach_buf = attach;
    return issue(made, appc_async_int);
}

void serving_test::forget_what_waits()
{
    for (verb& each : verbs)
        each.accepted = std::min<i32>(each.accepted, static_cast<i32>(each.completions()));
}

u32 serving_test::correlator() const
{
    const bytes& request = node.datagrams.back();
    return load<u32>(request.data(), load<u16>(request.data(), 2) == TPS_MSG_UPDATE_TP_INFO ? 20 : 8);
}

void serving_test::says(std::initializer_list<u32> type_and_words)
{
    std::vector<u32> all = type_and_words;
    all[0] = all[0] << 16 | static_cast<u32>(all.size() * 4);
    node.sends_datagram(as_bytes(all.data(), all.size() * 4));
}

void serving_test::answers_update(u32 status, u32 tp_reg_id, u32 to)
{
    says({TPS_MSG_UPDATE_TP_RSP, 0, status, tp_reg_id, 0, to == 0 ? correlator() : to});
}

void serving_test::answers_query(const bytes& elements, u32 status, u32 to, u32 address)
{
    const u32 length = static_cast<u32>(24 + elements.size());
    const u32 query = to == 0 ? correlator() : to;
    node.sends_datagram(joined({words({TPS_MSG_QUERY_DLOAD_RSP << 16 | length, 0, query, status, START_1, address}), elements}));
}

void serving_test::answers_request()
{
    if (node.datagrams.empty())
        return;
    switch (load<u16>(node.datagrams.back().data(), 2)) {
    case TPS_MSG_UPDATE_TP_INFO: return answers_update();
    case TPS_MSG_QUERY_DLOAD: return answers_query_with_pip();
    default: return;
    }
}

const verb_signal& serving_test::pip_request() const
{
    return *reinterpret_cast<const verb_signal*>(node.last(NAP_EXTRACT_PIP).message.data());
}

void serving_test::answers_pip(const bytes& data, u16 held_by_node, rc codes, u32 from_query)
{
    verb_signal answer = pip_request();
    answer.header.buf_len = sizeof answer;
    answer.header.msg_len = static_cast<u32>(sizeof answer + data.size());
    if (from_query != 0)
        answer.header.pend_handle = from_query;
    answer.block.primary_rc = codes.primary;
    answer.block.secondary_rc = codes.secondary;
    answer.block.pip_len = held_by_node;
    node.sends(node.last(NAP_EXTRACT_PIP).path, joined({as_bytes(&answer, sizeof answer), data}));
}

}  // namespace tessaly::test
