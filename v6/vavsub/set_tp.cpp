#include "v6/vavsub/set_tp.h"

#include "common/ebcdic.h"
#include "common/invariant.h"
#include "common/runtime_log.h"
#include "v6/records/modules.h"
#include "v6/records/pend_cache.h"
#include "v6/vav/send.h"
#include "verbs/catalogue.h"

#include <pwd.h>
#include <unistd.h>

#include <cstring>

namespace tessaly {

namespace {

// EBCDIC, padded with blanks, a longer name cut.
void write_user_id(u8 (&user_id)[10], const char* login_name) noexcept
{
    std::memset(user_id, ' ', sizeof user_id);
    std::memcpy(user_id, login_name, strnlen(login_name, sizeof user_id));
    for (u8& byte : user_id)
        byte = AE_table[byte];
}

}  // namespace

u16 vav_issue_set_tp(tpcb& tp, pndcb& started) noexcept
{
    pndcb* pend = tp.set_tp_pndcb;
    tp.set_tp_pndcb = nullptr;
    if (!invariant(pend != nullptr, VAVSUB, "pndcb != NULL"))
        return VAV_COMPLETE;
    auto* set_vcb = static_cast<appc_set_tp_properties*>(pend->vcb);
    if (!invariant(set_vcb != nullptr, VAVSUB, "set_vcb != NULL")) {
        vav_free_pend(pend);
        return VAV_COMPLETE;
    }
    const passwd* user = getpwuid(getuid());
    if (user == nullptr) {
        nba_mm_free(set_vcb, 0);
        pend->vcb = nullptr;
        vav_free_pend(pend);
        log_exception(LOG_NO_USER_NAME, 227, "");
        return VAV_COMPLETE;
    }

    *set_vcb = {};
    set_vcb->opcode = SET_TP_PROPERTIES;
    std::memcpy(set_vcb->tp_id, block_as<appc_tp_started>(started.vcb).tp_id, TP_ID_BYTES);
    set_vcb->set_user_id = 1;
    write_user_id(set_vcb->user_id, user->pw_name);

    queue_verb(tp, *pend, *find_verb(SET_TP_PROPERTIES), set_vcb, 0);
    tp.set_tp_waiter = &started;
    vav_send_verb(tp, *pend);
    return VAV_IN_PROGRESS;
}

}  // namespace tessaly
