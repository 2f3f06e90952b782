#include "vtpsrv/vtpsutil_completion.h"

#include "verbs/block.h"

namespace tessaly {

namespace {

verb_info* first_lost_query() noexcept
{
    u32 handle = 0;
    while (const tp_server* server = next_server(handle))
        for (verb_info* verb = server->verb_list.first(); verb != nullptr; verb = server->verb_list.after(*verb))
            if (verb->pip_path_lost != 0)
                return verb;
    return nullptr;
}

void abend(verb_info* verb) noexcept
{
    set_codes(verb->verb, COMMS_SUBSYSTEM_ABENDED, 0);
    tps_complete_verb_processing(verb);
}

}  // namespace

void tps_complete_verb_processing(verb_info* verb) noexcept
{
    void* vcb = verb->verb;
    const u32 corr = verb->corr;
    const appc_completion callback = verb->callback;
    if (verb->api_type == VAV_ASYNCBCK_VERB)
        tps_free_verb(verb);
    u8 no_tp_id[TP_ID_BYTES] = {};
    callback(vcb, no_tp_id, 0, corr);
}

bool complete_waiting_verbs(const tp_server& server) noexcept
{
    const u32 teardowns = tps_teardowns;
    const u32 handle = server.handle;
    do {
        verb_info* verb = server.verb_list.first();
        if (verb == nullptr)
            return true;
        abend(verb);
        if (tps_teardowns != teardowns)
            return false;
    } while (vtm_get_pointer(tps_main_cb->server_table, handle) == &server);
    return true;
}

bool complete_lost_queries() noexcept
{
    const u32 teardowns = tps_teardowns;
    while (verb_info* verb = first_lost_query()) {
        abend(verb);
        if (tps_teardowns != teardowns)
            return false;
    }
    return true;
}

}  // namespace tessaly
