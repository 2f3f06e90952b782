#include "localnode/engine/starts.h"

#include "localnode/engine/attaches.h"
#include "localnode/engine/clients.h"
#include "localnode/engine/conversations.h"
#include "localnode/engine/replies.h"
#include "localnode/engine/tp_definitions.h"

#include <tessaly/tp_server.h>

#include <algorithm>

namespace tessaly::node {

namespace {

using enum start_phase;

// The number of an attach that is started for goes to its program alone.
void renew(node& n, attach& arrived) noexcept
{
    n.attach_table.renew(arrived);
    arrived.offered_to = 0;
}

void ask_server(node& n, attach& arrived, tp_definition& by)
{
    if (by.starts.type == START_NEVER)
        return;
    arrived.start.definition = by.id;
    if (by.starts.type == START_QUEUED && by.under_way != 0) {
        arrived.start.phase = queued;
        return;
    }
    renew(n, arrived);
    start_appl_req_datagram request{};
    request.header = {sizeof request, TPS_MSG_START_APPL_REQ};
    request.server_handle = by.server;
    request.start_value = by.starts.start_value;
    request.start_id = {arrived.id, NODE_ADDRESS};
    if (!send_datagram(n, by.client, request))
        return;
    arrived.start.phase = asked;
    arrived.start.server = by.client;
    arrived.start.server_handle = by.server;
    if (by.starts.type == START_QUEUED)
        by.under_way = arrived.id;
    wait_in(n, n.starting, arrived, n.start_limit_ms);
}

void ask_host(node& n, attach& arrived)
{
    if (std::ranges::find(n.programs, arrived.side->program) == n.programs.end())
        return;
    renew(n, arrived);
    if (!send_start_program(n, arrived))
        return;
    arrived.start.phase = started;
    arrived.start.done = true;
    arrived.start.server = 0;
}

bool may_report(node& n, client_id client) noexcept
{
    const client_record* const of = find_client(n, client);
    return of != nullptr && of->rights.tp_server;
}

// What a report is about: whoever is admitted may send one, since the program that was started may report its own end.
attach* find_reported(node& n, client_id client, const start_id_words& start_id) noexcept
{
    attach* const found = n.attach_table.find(start_id.attach);
    if (found == nullptr || start_id.node != NODE_ADDRESS || !may_report(n, client) || found->start.phase < asked ||
        found->start.server == 0)
        return nullptr;
    return found;
}

void fail_start(node& n, attach& failed, u32 error_code)
{
    switch (error_code) {
    case APPC_TPS_ERROR_RETRY: return end_attach(n, failed, NOBODY_TAKES_IT);
    case APPC_TPS_ERROR_SECURITY: return end_attach(n, failed, {ALLOCATION_ERROR, APPC_SEC_SECURITY_NOT_VALID});
    default: return end_attach(n, failed, {ALLOCATION_ERROR, APPC_SEC_TRANS_PGM_NOT_AVAIL_NO_RETRY});
    }
}

}  // namespace

void start_program(node& n, attach& arrived)
{
    arrived.start.phase = none;
    if (arrived.start.done)
        return;
    if (tp_definition* const best = best_definition(n, *arrived.side))
        ask_server(n, arrived, *best);
    else
        ask_host(n, arrived);
}

void end_start(node& n, attach& ended) noexcept
{
    ended.start.phase = none;
    tp_definition* const by = n.definition_table.find(ended.start.definition);
    if (by == nullptr || by->under_way != ended.id)
        return;
    by->under_way = 0;
    n.queues_moved = true;
}

void move_queues(node& n)
{
    n.queues_moved = false;
    attach* next = n.attaches.first();
    while (attach* const waiting = next) {
        next = n.attaches.after(*waiting);
        if (waiting->start.phase != queued)
            continue;
        const tp_definition* const by = n.definition_table.find(waiting->start.definition);
        if (by == nullptr || by->under_way == 0)
            start_program(n, *waiting);
    }
}

void start_waiting(node& n, const tp_definition& defined)
{
    attach* next = n.attaches.first();
    while (attach* const waiting = next) {
        next = n.attaches.after(*waiting);
        if (waiting->offered_to == 0 && waiting->start.phase == none && fits(n, defined, *waiting->side))
            start_program(n, *waiting);
    }
}

void forget_server(node& n, client_record& of, client_id client, const u32* server)
{
    forget_definitions(n, of, client, server);
    pass_on_starts(n, client, server);
}

void pass_on_starts(node& n, client_id client, const u32* server)
{
    attach* next = n.starting.first();
    while (attach* const waiting = next) {
        next = n.starting.after(*waiting);
        if (waiting->start.server == client && (server == nullptr || waiting->start.server_handle == *server))
            refuse_attach(n, *waiting);
    }
}

void start_answered(node& n, client_id client, const start_appl_rsp_datagram& datagram)
{
    attach* const about = find_reported(n, client, datagram.start_id);
    if (about == nullptr)
        return;
    if (datagram.error_code != 0)
        return fail_start(n, *about, datagram.error_code);
    if (about->start.phase == started)
        return;
    about->start.phase = started;
    about->start.done = true;
    wait_in(n, n.attaches, *about, n.attach_limit_ms);
}

void program_failed(node& n, client_id client, const appl_failed_datagram& datagram)
{
    if (attach* const about = find_reported(n, client, datagram.start_id))
        fail_start(n, *about, datagram.error_code);
}

void take_back(node& n, client_id client, const start_appl_req_datagram& datagram)
{
    if (client_record* const of = find_client(n, client))
        forget_server(n, *of, client, &datagram.server_handle);
}

start_found find_start(node& n, client_id client, const start_id_words& start_id) noexcept
{
    if (start_id.node != NODE_ADDRESS)
        return {nullptr, APPC_SEC_BAD_ATTACH_ID};
    attach* const found = n.attach_table.find(start_id.attach);
    if (found == nullptr)
        return {nullptr, n.attach_table.had(start_id.attach) ? u32{APPC_SEC_ATTACH_GONE} : u32{APPC_SEC_BAD_ATTACH_ID}};
    if (found->start.server != client)
        return {nullptr, APPC_SEC_BAD_ATTACH_ID};
    if (found->start.phase < asked)
        return {nullptr, APPC_SEC_ATTACH_GONE};
    return {found, 0};
}

attach* find_hosts_start(node& n, u32 attach_corr) noexcept
{
    attach* const found = n.attach_table.find(attach_corr);
    return found != nullptr && found->start.phase == started && found->start.server == 0 ? found : nullptr;
}

}  // namespace tessaly::node
