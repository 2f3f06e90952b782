// The fixture of the TP server's tests: the library's fixture with a server callback, and the node's side of a TP server.
#pragma once

#include "tests/support/library_test.h"

#include "vtpsrv/vtpsmain_records.h"
#include "wire/ltv.h"
#include "wire/tp_server_datagrams.h"

#include <tessaly/tp_server.h>

namespace tessaly::test {

inline constexpr u32 START_1 = 0xA1B2C3D4, START_2 = 0x11223344, START_VALUE = 0x77665544, NODE_ADDRESS = 0x0D0C0B0A;

// One call of the server's callback.
struct server_call {
    u32 event;
    bytes start_id;  // empty for a null pointer
    u32 value;

    bool operator==(const server_call&) const = default;
};

bytes element(u16 type, const bytes& value);  // length, type, value

// An attach header whose length byte is right.
bytes attach_header(const bytes& name, const bytes& behind_the_name = {}, u8 flags = FMH5_PIP_PRESENT);

struct serving_test : library_test {
    serving_test();
    ~serving_test() override;
    void TearDown() override;

    // A block in which every byte of the application counts, and that would be accepted.
    verb& make(u16 opcode, u32 server = 0);
    verb& enter(bool synchronous, verb& what) { return synchronous ? wait_for(what) : issue(what, appc_async_int); }
    verb& start(u16 opcode, u32 server) { return issue(make(opcode, server), appc_async_int); }
    verb& wait_for(verb& what) { return what.result = appc_async_int(what.block(), nullptr, 0), what; }
    u32 register_server(u8 file_status_events = 0);
    verb& start_query(u32 server, u16 pip_buf_len = 0, u16 attach_buf_len = 100);  // into pip and attach

    // What the node says. correlator 0: that of the request sent last.
    u32 correlator() const;
    void answers_update(u32 status = 0, u32 tp_reg_id = 0x1234, u32 correlator = 0);
    void answers_query(const bytes& elements = {}, u32 status = 0, u32 correlator = 0, u32 address = NODE_ADDRESS);
    void answers_query_with_pip(u32 correlator = 0) { answers_query(element(7, attach_header({0xC1})), 0, correlator); }
    void answers_request();  // the one sent last, with success
    void asks_to_start(u32 server) { says({TPS_MSG_START_APPL_REQ, server, START_VALUE, 0, START_1, START_2}); }
    void reports_file_status() { node.sends_datagram({4, 0, TPS_MSG_TP_FILE_STATUS, 0}); }
    void answers_pip(const bytes& data, u16 held_by_node, rc codes = {OK}, u32 from_query = 0);
    void says(std::initializer_list<u32> type_and_words);
    const verb_signal& pip_request() const;

    void forget_what_waits();  // it is the parent's
    bool is_loaded() const { return tps_main_cb != nullptr; }

    std::vector<server_call> server_calls;
    std::function<void()> on_server_call;
    std::deque<std::unique_ptr<u8[]>> buffers;  // exactly as long as the library is told
    u8 *pip = nullptr, *attach = nullptr;       // those of the last query
};

}  // namespace tessaly::test
