#include "vtpsrv/vtpsmain_records.h"

#include "common/runtime_guards.h"
#include "verbs/block.h"
#include "vtpsrv/vtpsvrfy_privilege.h"

#include <cerrno>
#include <cstring>

namespace tessaly {

tps_control_block* tps_main_cb = nullptr;
u32 tps_teardowns = 0;

namespace {

template <typename Record>
Record* allocate_zeroed() noexcept
{
    auto* record = allocate_record<Record>();
    if (record != nullptr)
        std::memset(static_cast<void*>(record), 0, sizeof *record);
    return record;
}

}  // namespace

verb_info* tps_alloc_verb(void* vcb, appc_completion callback, u32 corr, u32 api_type) noexcept
{
    auto* verb = allocate_zeroed<verb_info>();
    if (verb == nullptr)
        return nullptr;
    verb->handle = vtm_get_free_entry(tps_main_cb->verb_table, verb);
    if (verb->handle == 0) {
        const int reason = errno;
        nba_mm_free(verb, 0);
        errno = reason;
        return nullptr;
    }
    init_link(*verb);
    verb->verb = vcb;
    verb->corr = api_type == VAV_SYNCBCK_VERB ? verb->handle : corr;
    verb->callback = callback;
    verb->api_type = api_type;
    verb->opcode = header_of(vcb).opcode;
    return verb;
}

void tps_free_verb(verb_info* verb) noexcept
{
    vtm_release_entry(tps_main_cb->verb_table, verb->handle);
    if (is_linked(verb->link))
        unlink(verb->link);
    nba_mm_free(verb, 0);
}

tp_server* tps_alloc_server() noexcept
{
    auto* server = allocate_zeroed<tp_server>();
    if (server == nullptr)
        return nullptr;
    server->handle = vtm_get_free_entry(tps_main_cb->server_table, server);
    if (server->handle != 0)
        server->wait_object = vpm_allocate_wait_object();
    if (server->wait_object == 0) {
        const int reason = errno;
        if (server->handle != 0)
            vtm_release_entry(tps_main_cb->server_table, server->handle);
        nba_mm_free(server, 0);
        errno = reason;
        return nullptr;
    }
    server->verb_list.init();
    server->privileged = tps_verify_privileges();
    return server;
}

void tps_free_server(tp_server* server) noexcept
{
    vpm_release_wait_object(server->wait_object);
    vtm_release_entry(tps_main_cb->server_table, server->handle);
    nba_mm_free(server, 0);
}

u16 tps_get_verb(u32 correlator, verb_info** verb, tp_server** server) noexcept
{
    *verb = nullptr;
    *server = nullptr;
    if (tps_main_cb == nullptr)
        return 0;
    *verb = static_cast<verb_info*>(vtm_get_pointer(tps_main_cb->verb_table, correlator));
    if (*verb != nullptr)
        *server = static_cast<tp_server*>(vtm_get_pointer(tps_main_cb->server_table, (*verb)->server_handle));
    return *server != nullptr;
}

tp_server* find_server(u32 handle) noexcept
{
    if (tps_main_cb == nullptr)
        return nullptr;
    auto* server = static_cast<tp_server*>(vtm_get_pointer(tps_main_cb->server_table, handle));
    return server != nullptr && server->leaving == 0 ? server : nullptr;
}

waiting_verb find_waiting_verb(u32 correlator) noexcept
{
    waiting_verb found;
    if (tps_get_verb(correlator, &found.verb, &found.server) == 0 || !is_linked(found.verb->link) || found.server->leaving != 0)
        return {nullptr, nullptr};
    return found;
}

tp_server* next_server(u32& handle) noexcept
{
    void* server = nullptr;
    handle = vtm_get_next_used(tps_main_cb->server_table, handle, &server);
    return handle != 0 ? static_cast<tp_server*>(server) : nullptr;
}

}  // namespace tessaly
