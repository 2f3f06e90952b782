#include "vtpsrv/vtpsmain_lifecycle.h"

#include "common/runtime_guards.h"
#include "common/scope_guard.h"
#include "vtpsrv/vtpsmain_records.h"
#include "vtpsrv/vtpsutil_completion.h"
#include "vtpsrv/vtpsutil_paths.h"

#include <cstring>

namespace tessaly {

namespace {

void release_table(u32& table) noexcept
{
    if (table != 0)
        vtm_table_terminate(&table);
    table = 0;
}

void release_control_block() noexcept
{
    release_table(tps_main_cb->server_table);
    release_table(tps_main_cb->verb_table);
    nba_mm_free(tps_main_cb, 0);
    tps_main_cb = nullptr;
}

// Whoever runs a verb up the stack, or in another thread, sees by the count of teardowns that its records are gone.
void release_all_records() noexcept
{
    forget_all_paths();
    void* verb = nullptr;
    for (u32 handle = 0; (handle = vtm_get_next_used(tps_main_cb->verb_table, handle, &verb)) != 0;)
        tps_free_verb(static_cast<verb_info*>(verb));
    u32 handle = 0;
    while (tp_server* server = next_server(handle))
        tps_free_server(server);
}

bool synchronous_verb_under_way() noexcept
{
    u32 handle = 0;
    while (const tp_server* server = next_server(handle))
        if (server->sync_busy != 0)
            return true;
    return false;
}

// False: all is gone already.
bool complete_all_verbs() noexcept
{
    tps_main_cb->state = TPS_STATE_TERMINATING;
    tps_main_cb->sweeping = 1;
    u32 handle = 0;
    while (tp_server* server = next_server(handle))
        if (!complete_waiting_verbs(*server))
            return false;
    tps_main_cb->sweeping = 0;
    return true;
}

}  // namespace

u32 tps_load() noexcept
{
    constexpr u32 no_resources = 12;
    tps_main_cb = allocate_record<tps_control_block>();
    if (tps_main_cb == nullptr)
        return no_resources;
    std::memset(static_cast<void*>(tps_main_cb), 0, sizeof *tps_main_cb);
    scope_guard unload(release_control_block);
    vtm_table_init(&tps_main_cb->server_table, 0);
    if (tps_main_cb->server_table == 0)
        return no_resources;
    vtm_table_init(&tps_main_cb->verb_table, 0);
    if (tps_main_cb->verb_table == 0)
        return no_resources;
    tps_main_cb->path_list.init();
    tps_main_cb->state = TPS_STATE_LOADED;
    unload.keep();
    return 0;
}

u32 tps_initialise() noexcept
{
    tps_main_cb->state = TPS_STATE_ACTIVE;
    return 0;
}

void tps_terminate() noexcept
{
    if (tps_main_cb == nullptr || tps_main_cb->sweeping != 0)  // the loop up the stack finishes the work
        return;
    if (tps_main_cb->state == TPS_STATE_ACTIVE && !complete_all_verbs())
        return;
    // Asked only now: a sleeper may have left while a callback let others run.
    if (synchronous_verb_under_way())
        return;
    release_all_records();
    tps_main_cb->state = TPS_STATE_LOADED;
    tps_unload();
}

void tps_unload() noexcept
{
    if (tps_main_cb == nullptr)
        return;
    release_control_block();
    ++tps_teardowns;
}

void tps_appl_forked() noexcept
{
    if (tps_main_cb == nullptr)
        return;
    release_all_records();
    tps_unload();
}

}  // namespace tessaly
