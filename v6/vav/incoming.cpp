#include "v6/vav/incoming.h"

#include "common/ebcdic.h"
#include "common/invariant.h"
#include "common/runtime_log.h"
#include "common/scope_guard.h"
#include "v6/records/main_cb.h"
#include "v6/records/modules.h"
#include "v6/records/pend_cache.h"
#include "v6/vav/send.h"
#include "v6/vav/version.h"
#include "v6/vavsub/completion.h"
#include "verbs/catalogue.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tessaly {

namespace {

constexpr char ATTACH_ID_VARIABLE[] = "APPC_ATTACH_ID";

struct attach_id {
    u32 corr;
    u32 addr;
};

// A process that the node started for one conversation finds that conversation's attach in its environment.
void take_attach_id_from_environment(void* vcb) noexcept
{
    constexpr u32 digits = 16;
    const char* value = std::getenv(ATTACH_ID_VARIABLE);
    if (value == nullptr || std::strlen(value) != digits || header_of(vcb).format == 0)
        return;
    unsigned words[2] = {};
    std::sscanf(value, "%8x%8x", &words[0], &words[1]);
    u8* id = block_as<appc_receive_allocate>(vcb).attach_id;
    store<u32>(id, 0, __builtin_bswap32(words[0]));  // most significant byte first
    store<u32>(id, 4, __builtin_bswap32(words[1]));
}

attach_id attach_id_in(const void* vcb) noexcept
{
    if (header_of(vcb).format == 0)
        return {};
    const u8* id = block_as<appc_receive_allocate>(vcb).attach_id;
    return {load<u32>(id, 0), load<u32>(id, 4)};
}

u16 send_datagram(void* datagram, u32 bytes) noexcept
{
    return vpm_send_datagram(DATAGRAM_DESTINATION, 0, datagram, bytes);
}

u16 announce(const tpcb& tp, pndcb& pend) noexcept
{
    const auto& block = block_as<appc_receive_allocate>(pend.vcb);
    announce_datagram announcement{};
    announcement.header = {sizeof announcement, DATAGRAM_ANNOUNCE};
    announcement.src_corr = tp.handle;
    if (block.opcode == RECEIVE_ALLOCATE_CPIC)
        announcement.cpic_names = block_as<appc_receive_allocate_cpic>(pend.vcb).tp_name_count;
    else
        vav_copy_tp_name(announcement.tp_name, block.tp_name);
    if (block.opcode == RECEIVE_ALLOCATE_EX)
        std::memcpy(announcement.lu_alias, block.lu_alias, sizeof announcement.lu_alias);
    else
        std::memset(announcement.lu_alias, ' ', sizeof announcement.lu_alias);

    const u16 status = send_datagram(&announcement, sizeof announcement);
    if (status == 0)
        return 1;
    set_codes(pend.vcb, UNEXPECTED_SYSTEM_ERROR, status);
    log_problem(LOG_VERB_FAILED, 208, "x lx es", u32{UNEXPECTED_SYSTEM_ERROR}, u32{status}, announcement.tp_name.length,
                announcement.tp_name.name);
    return 0;
}

// The first TP whose first verb is a receive-allocate that nobody has cancelled yet.
tpcb* find_waiting_tp() noexcept
{
    tpcb* found = nullptr;
    for_each_tp(VAV, [&found](tpcb& tp) {
        const pndcb* pend = tp.verb_q.first();
        const bool waits = pend != nullptr && pend->vcb != nullptr && is_receive_allocate(pend->verb->opcode);
        if (waits && tp.pnd_cncl == nullptr)
            found = &tp;
        return found == nullptr;
    });
    return found;
}

// The verb is on its attach path, so it ends here and the attach is given back.
void cancel_attached(tpcb& tp, pndcb& pend) noexcept
{
    drop_path(tp);
    answer_attach(ATTACH_REFUSED, pend.attach_corr, pend.attach_addr);
    set_codes(pend.vcb, CANCELLED, 0);
    complete_and_end(tp, pend);
}

}  // namespace

u16 vav_rcv_allocate(tpcb& tp, pndcb& pend) noexcept
{
    take_attach_id_from_environment(pend.vcb);
    const attach_id attach = attach_id_in(pend.vcb);
    if (attach.corr == 0 && attach.addr == 0)
        return announce(tp, pend);
    if (vav_send_rcv_allocate(tp, pend, attach.addr, attach.corr) != 0)
        return 0;
    setenv(ATTACH_ID_VARIABLE, "", 1);  // the next receive-allocate of this process announces itself
    return 1;
}

u16 vav_send_rcv_allocate(tpcb& tp, pndcb& pend, u32 attach_addr, u32 attach_corr) noexcept
{
    auto& block = block_as<appc_receive_allocate>(pend.vcb);
    pend.attach_addr = attach_addr;
    pend.attach_corr = attach_corr;
    block.conv_id = attach_corr;

    tp.path = vpm_create_path(main_cb.path_user, attach_addr, 1, vav_appc_caps);
    if (tp.path == 0) {
        set_codes(pend.vcb, UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY);
        return 1;
    }
    tp.saved_opcode = block.opcode;
    block.opcode = RECEIVE_ALLOCATE;  // every variant travels under this opcode
    pend.verb = find_verb(RECEIVE_ALLOCATE);
    vav_send_verb(tp, pend);
    return 0;
}

u16 vav_cancel_rcv_alloc(verb_call& call) noexcept
{
    tpcb* tp = find_waiting_tp();
    if (tp == nullptr)
        return VAV_COMPLETE;
    pndcb& waiting = *tp->verb_q.first();
    invariant(tp->verb_q.holds_only(waiting), VAV, "NB_ALONE_IN_LIST(pndcb->queue)");
    if (tp->path != 0) {
        cancel_attached(*tp, waiting);
        return VAV_COMPLETE;
    }

    pndcb* pend = vav_alloc_pend(call.callback);
    if (pend == nullptr) {
        log_exception(LOG_SHORTAGE, 209, "");
        set_codes(call.vcb, UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY);
        return VAV_COMPLETE;
    }
    scope_guard drop_pend{[&] { vav_free_pend(pend); }};
    queue(call, *tp, *pend);

    cancel_announce_datagram cancel{{sizeof cancel, DATAGRAM_CANCEL_ANNOUNCE}, tp->handle};
    if (const u16 status = send_datagram(&cancel, sizeof cancel); status != 0) {
        set_codes(call.vcb, UNEXPECTED_SYSTEM_ERROR, status);
        return VAV_COMPLETE;
    }
    drop_pend.keep();
    tp->pnd_cncl = pend;
    waiting.cancelled = 1;
    return VAV_IN_PROGRESS;
}

void vav_copy_tp_name(counted_tp_name& dest, const u8* name) noexcept
{
    const u8* end = name[0] == 0 ? name : std::find(name, name + TP_NAME_BYTES, EBCDIC_BLANK);
    dest.length = static_cast<u32>(end - name);
    std::memset(dest.name, EBCDIC_BLANK, TP_NAME_BYTES);
    std::memcpy(dest.name, name, dest.length);
}

void answer_attach(attach_reason reason, u32 attach_corr, u32 attach_addr) noexcept
{
    attach_response_datagram response{{sizeof response, DATAGRAM_ATTACH_RESPONSE}, reason, attach_corr, attach_addr};
    send_datagram(&response, sizeof response);
}

}  // namespace tessaly
