#include "v6/vav/tp_start.h"

#include "common/ebcdic.h"
#include "common/invariant.h"
#include "common/runtime_log.h"
#include "v6/records/main_cb.h"
#include "v6/records/modules.h"
#include "v6/vav/alias_map.h"
#include "v6/vav/send.h"
#include "v6/vav/version.h"
#include "v6/vavsub/completion.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

namespace tessaly {

namespace {

u16 give_up(const pndcb& pend) noexcept
{
    const auto& block = block_as<appc_tp_started>(pend.vcb);
    log_problem(LOG_TP_START_FAILED, 207, "x lx es", u32{block.primary_rc}, block.secondary_rc, TP_NAME_BYTES, block.tp_name);
    return 0;
}

u16 give_up(const pndcb& pend, u16 primary, u32 secondary) noexcept
{
    set_codes(pend.vcb, primary, secondary);
    return give_up(pend);
}

// Writes a mark and an ASCII text with its NUL behind the used part of a TP name, then converts the text in place.
// The first byte that has no EBCDIC form, the NUL at the latest, ends it and becomes a blank. The caller has seen to
// the room.
void append_suffix(u8* name, u32 used, u8 mark, const char* text, u32 text_bytes, bool keep_hyphens) noexcept
{
    name[used] = mark;
    std::memcpy(name + used + 1, text, text_bytes + 1);
    for (u32 at = used + 1; at < TP_NAME_BYTES; ++at) {
        name[at] = keep_hyphens && name[at] == '-' ? EBCDIC_HYPHEN : AE_table[name[at]];
        if (name[at] == 0) {
            name[at] = EBCDIC_BLANK;
            return;
        }
    }
}

// With an option file present, TP names tell which machine they run on.
void decorate_tp_name(u8* name) noexcept
{
    constexpr u32 longest_ipv4_suffix = 16;  // mark and 15 characters
    const u8* end = std::find_if(name, name + TP_NAME_BYTES, [](u8 byte) { return byte == 0 || byte == EBCDIC_BLANK; });
    const u32 used = static_cast<u32>(end - name);

    if (vav_ipv4_addr != nullptr) {
        if (used + longest_ipv4_suffix < TP_NAME_BYTES) {
            const char* dotted = inet_ntoa({load<u32>(vav_ipv4_addr, 4)});
            append_suffix(name, used, EBCDIC_UNDERSCORE, dotted, static_cast<u32>(std::strlen(dotted)), false);
        }
    } else if (vav_hostname != 0) {
        const u32 host_bytes = static_cast<u32>(std::strlen(BoxName));
        if (host_bytes + used + 1 < TP_NAME_BYTES)
            append_suffix(name, used, EBCDIC_PERCENT, BoxName, host_bytes, true);
    }
}

u32 next_node(tpcb& tp) noexcept
{
    constexpr u32 verb_service = 1;
    return vsm_query_services(verb_service, 0, tp.query_cursor);
}

u16 send_to(u32 node, tpcb& tp, pndcb& pend) noexcept
{
    tp.path = vpm_create_path(main_cb.path_user, node, 1, vav_appc_caps);
    if (tp.path == 0)
        return give_up(pend, UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY);
    vav_send_verb(tp, pend);
    return 1;
}

u16 start_first(tpcb& tp, pndcb& pend) noexcept
{
    auto& block = block_as<appc_tp_started>(pend.vcb);
    if (!map_alias(block.lu_alias))
        return give_up(pend, PARAMETER_CHECK, SEC_LU_ALIAS_BARRED);
    decorate_tp_name(block.tp_name);
    drop_path(tp);
    const u32 node = next_node(tp);
    return node == 0 ? give_up(pend, COMMS_SUBSYSTEM_NOT_LOADED, 0) : send_to(node, tp, pend);
}

// The alias and the name are already as they shall be.
u16 start_again(tpcb& tp, pndcb& pend, start_reason reason) noexcept
{
    drop_path(tp);
    forget_node_names(tp);
    if (const u32 node = next_node(tp); node != 0)
        return send_to(node, tp, pend);
    return reason == START_AFTER_PATH_FAILURE ? give_up(pend, PARAMETER_CHECK, SEC_NODE_NOT_FOUND) : give_up(pend);
}

}  // namespace

u16 vav_tp_started(tpcb& tp, pndcb& pend, start_reason reason) noexcept
{
    block_as<appc_tp_started>(pend.vcb).reserved_92[0] = 0;
    return reason == START_BY_APPLICATION ? start_first(tp, pend) : start_again(tp, pend, reason);
}

u16 vav_cancel_tp_started() noexcept
{
    for_each_tp(VAV, [](tpcb& tp) {
        if (!is_first(tp, TP_STARTED))
            return true;
        pndcb* pend = tp.verb_q.first();
        recover_set_tp(tp);
        invariant(tp.verb_q.holds_only(*pend), VAV, "NB_ALONE_IN_LIST(pndcb->queue)");
        drop_path(tp);
        set_codes(pend->vcb, CANCELLED, 0);
        complete_and_end(tp, *pend);
        return false;
    });
    return VAV_COMPLETE;
}

}  // namespace tessaly
