// Programs that play TP servers, and the conversations that they are asked to start for.
#pragma once

#include "tests/engine/playing.h"
#include "wire/tp_server_datagrams.h"

#include <tessaly/tp_server.h>

#include <cstring>
#include <map>

namespace tessaly::node::playing {

inline constexpr rc RETRY{ALLOCATION_ERROR, APPC_SEC_TRANS_PGM_NOT_AVAIL_RETRY};
inline constexpr rc NO_RETRY{ALLOCATION_ERROR, APPC_SEC_TRANS_PGM_NOT_AVAIL_NO_RETRY};
inline constexpr u8 EACH = 1, QUEUED = 2, MANUAL = 3;  // as they travel
inline constexpr client_id S = 2, S2 = 3;               // clients that have TP servers
inline constexpr client_rights ROOT{true, true}, ADMITTED{true, false};

class TpServer : public EngineTest {
protected:
    void open(client_id client, u32 number = 1, client_rights may = ROOT)
    {
        rights[client] = may;
        w.feed({.kind = frame_kind::tp_server_opened, .client = client, .path = number, .rights = may});
    }
    void close(client_id client, u32 number = 1)
    {
        w.feed({.kind = frame_kind::tp_server_closed, .client = client, .path = number});
    }
    template <typename Datagram>
    void tell(client_id client, const Datagram& content, frame_kind kind = frame_kind::datagram)
    {
        const bytes block{reinterpret_cast<const u8*>(&content), reinterpret_cast<const u8*>(&content + 1)};
        w.feed({.kind = kind, .client = client, .block = block, .rights = rights[client]});
    }
    // The next datagram of that type that the client gets; what it is told of changes is only counted.
    std::optional<bytes> take(client_id client, u16 type)
    {
        while (const auto got = w.take(client, frame_kind::datagram, 0)) {
            const u16 length = load<u16>(got->content.data(), 0), came = load<u16>(got->content.data(), 2);
            EXPECT_EQ(length, got->content.size());
            if (came == type)
                return got->content;
            EXPECT_TRUE(came == TPS_MSG_TP_FILE_STATUS && length == 4) << came;
            ++changes[client];
        }
        return std::nullopt;
    }
    template <typename Datagram>
    std::optional<Datagram> take_as(client_id client, u16 type)
    {
        const auto came = take(client, type);
        if (!came)
            return std::nullopt;
        Datagram datagram;
        std::memcpy(&datagram, came->data(), sizeof datagram);
        return datagram;
    }

    struct definition {
        std::string_view tp = "ECHO", lu = "", partner = "";
        u8 type = EACH;
        u32 server = 0x1001, action = TPS_TP_ADD, id = 0;
    };
    u32 update(client_id client, const definition& each)
    {
        update_tp_info_datagram datagram{};
        datagram.header = {sizeof datagram, TPS_MSG_UPDATE_TP_INFO};
        datagram.action = each.action;
        datagram.tp_reg_id = each.id;
        datagram.server_handle = each.server;
        datagram.correlator = 77;
        datagram.start_value = each.server + 5;
        alias(datagram.lu_alias, each.lu);
        name(datagram.tp_name, each.tp);
        name(datagram.fqplu_name, each.partner);
        if (each.partner.ends_with('*'))
            datagram.fqplu_name[each.partner.size() - 1] = 0x5C;
        datagram.tp_type = each.type;
        tell(client, datagram);
        const auto answer = take_as<update_tp_rsp_datagram>(client, TPS_MSG_UPDATE_TP_RSP);
        EXPECT_TRUE(answer && answer->correlator == 77);
        defined = answer ? answer->tp_reg_id : 0;
        return answer ? answer->status : 999;
    }
    void serve(client_id client, u8 type = EACH)
    {
        open(client);
        definition each{.type = type, .server = 0x1000 + client};
        if (client == S2)
            each.partner = "*";  // wider, so that it is the next
        EXPECT_EQ(update(client, each), 0u);
    }

    // What a client is asked to start; attach 0: nothing.
    start_appl_req_datagram asked(client_id client)
    {
        return take_as<start_appl_req_datagram>(client, TPS_MSG_START_APPL_REQ).value_or(start_appl_req_datagram{});
    }
    void report(client_id client, const start_id_words& start, u32 error_code)
    {
        start_appl_rsp_datagram datagram{};
        datagram.header = {sizeof datagram, TPS_MSG_START_APPL_RSP};
        datagram.error_code = error_code;
        datagram.start_id = start;
        tell(client, datagram);
    }
    void fail(client_id client, const start_id_words& start, u32 error_code)
    {
        tell(client, appl_failed_datagram{{sizeof(appl_failed_datagram), TPS_MSG_APPL_FAILED}, error_code, start});
    }
    // As the program that was started does it.
    rc take_attach(const start_id_words& start, client_id client = 9)
    {
        program started{w, client};
        started.open();
        auto verb = verb_of_tp<appc_receive_allocate>(RECEIVE_ALLOCATE);
        verb.conv_id = start.attach;
        const rc codes = started.codes(verb);
        if (codes == rc{})
            respond(started, start.attach, ATTACH_TAKEN);
        return codes;
    }
    bytes query(client_id client, const start_id_words& start)
    {
        query_dload_datagram datagram{};
        datagram.header = {sizeof datagram, TPS_MSG_QUERY_DLOAD};
        datagram.correlator = 88;
        datagram.start_id = start;
        tell(client, datagram);
        return take(client, TPS_MSG_QUERY_DLOAD_RSP).value_or(bytes(24));
    }
    u32 query_status(client_id client, const start_id_words& start) { return load<u32>(query(client, start).data(), 12); }
    void TearDown() override
    {
        for (const client_id client : {S, S2})
            take(client, 0);
        EXPECT_EQ(w.node.counts().unreachable, 0u);
        EngineTest::TearDown();
    }

    program a = start_tp(w);
    std::map<client_id, client_rights> rights;
    std::map<client_id, u32> changes;
    u32 defined = 0;
};

}  // namespace tessaly::node::playing
