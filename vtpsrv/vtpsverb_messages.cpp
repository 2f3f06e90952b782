#include "vtpsrv/vtpsverb_messages.h"

#include "common/invariant.h"
#include "common/runtime_guards.h"
#include "verbs/block.h"
#include "vtpsrv/modules.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tessaly {

namespace {

u16 failed_with(void* vcb, u16 status) noexcept
{
    if (status != 0)
        set_codes(vcb, UNEXPECTED_SYSTEM_ERROR, status);
    return status;
}

template <typename Datagram>
Datagram empty_datagram(tp_server_datagram_type type) noexcept
{
    Datagram datagram{};
    datagram.header = {sizeof datagram, type};
    return datagram;
}

template <typename Datagram>
u16 send(const verb_info& verb, Datagram& datagram) noexcept
{
    return failed_with(verb.verb, vpm_send_datagram(DATAGRAM_DESTINATION, 0, &datagram, sizeof datagram));
}

start_id_words words_of(const appc_start_id& id) noexcept
{
    return {id.attach, id.node};
}

u16 send_start_appl_rsp(const verb_info& verb, u32 error_code) noexcept
{
    auto response = empty_datagram<start_appl_rsp_datagram>(TPS_MSG_START_APPL_RSP);
    response.error_code = error_code;
    response.start_id = words_of(block_as<appc_start_appl>(verb.verb).start_id);
    return send(verb, response);
}

u8 type_on_the_wire(u8 tp_type) noexcept
{
    switch (tp_type) {
    case APPC_TP_QUEUED: return 2;
    case APPC_TP_QUEUED_MANUAL: return 3;
    case APPC_TP_NONQUEUED: return 1;
    default: invariant(false, VTPSVERB, "FALSE", 333); return 0;
    }
}

void describe_definition(update_tp_info_datagram& info, const appc_register_tp& block) noexcept
{
    info.start_value = block.start_value;
    std::ranges::copy(block.lu_alias, info.lu_alias);
    std::ranges::copy(block.fqplu_name, info.fqplu_name);
    info.plu_name_end = TPS_PLU_NAME_END;
    info.tp_type = type_on_the_wire(block.tp_type);
    std::ranges::copy(block.tp_name, info.tp_name);
}

}  // namespace

u16 tps_send_appl_failed(verb_info* verb) noexcept
{
    const auto& block = block_as<appc_start_appl>(verb->verb);
    auto failed = empty_datagram<appl_failed_datagram>(TPS_MSG_APPL_FAILED);
    failed.error_code = block.error_code;
    failed.start_id = words_of(block.start_id);
    return send(*verb, failed);
}

u16 tps_send_start_appl_err(verb_info* verb) noexcept
{
    return send_start_appl_rsp(*verb, block_as<appc_start_appl>(verb->verb).error_code);
}

u16 tps_send_start_appl_ok(verb_info* verb) noexcept
{
    return send_start_appl_rsp(*verb, 0);
}

u16 tps_send_query_dload(verb_info* verb) noexcept
{
    static_assert(offsetof(appc_query_attach, start_id) == offsetof(appc_start_appl, start_id));
    auto query = empty_datagram<query_dload_datagram>(TPS_MSG_QUERY_DLOAD);
    query.correlator = verb->handle;
    query.start_id = words_of(block_as<appc_start_appl>(verb->verb).start_id);
    return send(*verb, query);
}

u16 tps_send_update_tp_info(verb_info* verb) noexcept
{
    const auto& block = block_as<appc_register_tp>(verb->verb);
    const bool defines = verb->opcode != NAP_UNREGISTER_TP;
    auto info = empty_datagram<update_tp_info_datagram>(TPS_MSG_UPDATE_TP_INFO);
    info.action = !defines ? TPS_TP_DELETE : block.replace == 1 ? TPS_TP_REPLACE : TPS_TP_ADD;
    if (info.action != TPS_TP_ADD)
        info.tp_reg_id = block.tp_reg_id;
    info.server_handle = block.server_handle;
    info.correlator = verb->handle;
    info.node_options = block.node_options;
    if (defines)
        describe_definition(info, block);
    return send(*verb, info);
}

bool send_extract_pip(const verb_info& verb, u32 path, const start_id_words& attach) noexcept
{
    auto* signal = allocate_record<verb_signal>();
    if (signal == nullptr) {
        set_codes(verb.verb, UNEXPECTED_SYSTEM_ERROR, static_cast<u32>(errno));
        return false;
    }
    std::memset(signal, 0, sizeof *signal);
    signal->header.owner_link = reinterpret_cast<uintptr_t>(signal);
    signal->header.msg_len = sizeof *signal;
    signal->header.kind = VERB_MESSAGE_KIND;
    signal->header.pend_handle = verb.handle;
    signal->block.opcode = NAP_EXTRACT_PIP;
    signal->block.attach = attach;
    signal->block.pip_buf_len = block_as<appc_query_attach>(verb.verb).pip_buf_len;
    const u16 status = vpm_send_ips(path, signal, sizeof *signal, nullptr, 0);
    nba_mm_free(signal, 0);
    return failed_with(verb.verb, status) == 0;
}

}  // namespace tessaly
