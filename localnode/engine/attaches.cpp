// Matches attaches with announced TPs, in the order in which both came.
#include "localnode/engine/attaches.h"

#include "localnode/engine/clients.h"
#include "localnode/engine/conversations.h"
#include "localnode/engine/replies.h"
#include "localnode/engine/starts.h"
#include "localnode/engine/tp_definitions.h"

#include <algorithm>

namespace tessaly::node {

namespace {

constexpr u32 MOST_ANNOUNCED = 1000;  // of a client
constexpr u32 MOST_NAMES = 1000;      // of a client

// The name in a datagram; none when its length cannot be.
std::optional<tp_name> name_of(const counted_tp_name& counted) noexcept
{
    if (counted.length > TP_NAME_BYTES)
        return std::nullopt;
    u8 used[TP_NAME_BYTES] = {};
    std::copy_n(counted.name, counted.length, used);
    return name_in<tp_name>(used);
}

bool is_at_lu_of(const announced_tp& waiting, const conv_side& incoming) noexcept
{
    return waiting.lu == ANY_LU || waiting.lu == incoming.local_lu;
}

bool accepts(node& n, const announced_tp& waiting, const conv_side& incoming) noexcept
{
    if (!is_at_lu_of(waiting, incoming))
        return false;
    if (waiting.registered_names) {
        const std::set<tp_name>& names = find_client(n, waiting.client)->names;
        return names.empty() || names.contains(incoming.program);
    }
    return is_blank(waiting.program) || waiting.program == incoming.program;
}

void forget_announcement(node& n, announced_tp& waiting) noexcept
{
    unlink(waiting.link);
    find_client(n, waiting.client)->announced.erase(waiting.tp_handle);
    n.announced_table.give_back(waiting);
}

// Under a number of its own each time, so that a late response to an earlier offer means nothing.
void offer(node& n, attach& offered, client_id client, u32 tp_handle)
{
    n.attach_table.renew(offered);
    offered.start.phase = start_phase::none;
    offered.start.server = 0;
    offered.offered_to = client;
    offered.tp_handle = tp_handle;
    send_ready(n, offered);
}

bool offer_to_waiting(node& n, attach& arrived)
{
    announced_tp* waiting = n.announced.first();
    while (waiting != nullptr && !accepts(n, *waiting, *arrived.side))
        waiting = n.announced.after(*waiting);
    if (waiting == nullptr)
        return false;
    const client_id client = waiting->client;
    const u32 tp_handle = waiting->tp_handle;
    forget_announcement(n, *waiting);
    offer(n, arrived, client, tp_handle);
    return true;
}

bool is_free(const attach& arrived) noexcept
{
    return arrived.offered_to == 0 && arrived.start.phase <= start_phase::queued;
}

// Offers the TP the first attach that fits. False when there is none.
template <typename Fits>
bool find_offer(node& n, announced_tp& waiting, Fits fits)
{
    attach* arrived = n.attaches.first();
    while (arrived != nullptr && (!is_free(*arrived) || !fits(*arrived->side)))
        arrived = n.attaches.after(*arrived);
    if (arrived == nullptr)
        return false;
    const client_id client = waiting.client;
    const u32 tp_handle = waiting.tp_handle;
    forget_announcement(n, waiting);
    offer(n, *arrived, client, tp_handle);
    return true;
}

// To those of a client's TPs that go by its registered names: they now accept this one, or without one any.
void offer_by_name(node& n, client_id client, const tp_name* program)
{
    announced_tp* next = n.announced.first();
    while (announced_tp* const waiting = next) {
        next = n.announced.after(*waiting);
        if (waiting->client == client && waiting->registered_names)
            find_offer(n, *waiting, [&](const conv_side& incoming) {
                return (program == nullptr || incoming.program == *program) && is_at_lu_of(*waiting, incoming);
            });
    }
}

void unlist_attach(node& n, attach& taken) noexcept
{
    unlink(taken.link);
    --n.waiting_attaches;
}

// What a TP server may ask for.
bool keep_details(attach& arrived, const request& verb) noexcept
try {
    const auto& block = block_as<appc_allocate>(verb.block);
    const std::span<const u8> pip = verb.data.first(block.pip_dlen);
    arrived.security = block.security;
    arrived.password = name_in<user_name>(block.pwd);
    arrived.pip.assign(pip.begin(), pip.end());
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

void forget_details(attach& gone) noexcept
{
    gone.password = {};
    gone.pip = {};
}

announced_tp* find_announced(node& n, client_id client, u32 tp_handle) noexcept
{
    const client_record* const found = find_client(n, client);
    return found != nullptr ? find_in(found->announced, tp_handle) : nullptr;
}

// Null when the client has too many already, or there is no memory.
announced_tp* new_announcement(node& n, client_id client, u32 tp_handle) noexcept
{
    client_record* const of = client_of(n, client);
    if (of == nullptr || of->announced.size() >= MOST_ANNOUNCED)
        return nullptr;
    announced_tp* const made = n.announced_table.take();
    if (made == nullptr || keep(of->announced, {tp_handle, made}))
        return made;
    n.announced_table.give_back(*made);
    return nullptr;
}

void read_announcement(announced_tp& waiting, client_id client, const announce_datagram& datagram,
                       const tp_name& program) noexcept
{
    waiting.client = client;
    waiting.tp_handle = datagram.src_corr;
    waiting.registered_names = datagram.tp_name.name[0] == 0;
    waiting.program = program;
    std::copy_n(datagram.lu_alias, waiting.lu.size(), waiting.lu.begin());
    if (waiting.lu == lu_alias{})
        waiting.lu = ANY_LU;
}

}  // namespace

void wait_in(node& n, list_head<attach>& list, attach& waiting, u32 limit_ms) noexcept
{
    if (is_linked(waiting.link))
        unlink(waiting.link);
    else
        ++n.waiting_attaches;
    waiting.deadline_ms = n.now_ms + limit_ms;
    list.append(waiting);
}

bool send_attach(node& n, conv_side& incoming, const request& verb)
{
    if (n.waiting_attaches >= n.most_attaches)
        return false;
    attach* const arrived = n.attach_table.take();
    if (arrived == nullptr)
        return false;
    if (!keep_details(*arrived, verb)) {
        n.attach_table.give_back(*arrived);
        return false;
    }
    init_link(*arrived);
    arrived->side = &incoming;
    arrived->offered_to = 0;
    arrived->tp_handle = 0;
    arrived->start = {};
    incoming.arrival = arrived;
    wait_in(n, n.attaches, *arrived, n.attach_limit_ms);
    if (!offer_to_waiting(n, *arrived))
        start_program(n, *arrived);
    return true;
}

attach* take_attach(node& n, u32 attach_corr, client_id client, u32 tp_handle)
{
    attach* const offered = n.attach_table.find(attach_corr);
    if (offered == nullptr || !is_linked(offered->link))
        return nullptr;
    if (offered->start.phase >= start_phase::asked) {
        end_start(n, *offered);
        offered->start.done = true;
        offered->offered_to = client;
        offered->tp_handle = tp_handle;
    }
    if (offered->offered_to != client || offered->tp_handle != tp_handle)
        return nullptr;
    unlist_attach(n, *offered);
    return offered;
}

void drop_attach(node& n, attach& done)
{
    done.side->arrival = nullptr;
    if (is_linked(done.link))
        unlist_attach(n, done);
    end_start(n, done);
    forget_details(done);
    n.attach_table.give_back(done);
}

void end_attach(node& n, attach& ended, return_codes codes)
{
    end_side(n, *ended.side, codes);
}

void refuse_attach(node& n, attach& refused)
{
    if (refused.side->owner != nullptr)
        unbind(*refused.side);
    if (!is_linked(refused.link) || refused.start.phase == start_phase::asked)
        wait_in(n, n.attaches, refused, n.attach_limit_ms);
    end_start(n, refused);
    refused.offered_to = 0;
    if (offer_to_waiting(n, refused))
        return;
    start_program(n, refused);
    if (refused.start.phase == start_phase::none)
        end_attach(n, refused, NOBODY_TAKES_IT);
}

void program_ended(node& n, u32 attach_corr)
{
    if (attach* const kept = find_hosts_start(n, attach_corr))
        refuse_attach(n, *kept);
}

void announce(node& n, client_id client, const announce_datagram& datagram)
{
    const std::optional<tp_name> program = name_of(datagram.tp_name);
    if (!program)
        return;
    if (announced_tp* const earlier = find_announced(n, client, datagram.src_corr))
        forget_announcement(n, *earlier);
    announced_tp* const waiting = new_announcement(n, client, datagram.src_corr);
    if (waiting == nullptr) {
        send_announcement_failed(n, client, datagram.src_corr);
        return;
    }
    init_link(*waiting);
    read_announcement(*waiting, client, datagram, *program);
    n.announced.append(*waiting);
    find_offer(n, *waiting, [&](const conv_side& incoming) { return accepts(n, *waiting, incoming); });
}

void cancel_announcement(node& n, client_id client, const cancel_announce_datagram& datagram)
{
    if (announced_tp* const waiting = find_announced(n, client, datagram.src_corr)) {
        forget_announcement(n, *waiting);
        send_announcement_failed(n, client, datagram.src_corr);
    }
}

void attach_response(node& n, client_id client, const attach_response_datagram& datagram)
{
    attach* const offered = n.attach_table.find(datagram.attach_corr);
    if (offered == nullptr || offered->offered_to != client)
        return;
    if (datagram.reason != ATTACH_TAKEN)
        refuse_attach(n, *offered);
    else if (!is_linked(offered->link))
        drop_attach(n, *offered);
}

void register_name(node& n, client_id client, const cpic_datagram& datagram)
{
    const std::optional<tp_name> program = name_of(datagram.tp_name);
    client_record* const of = program ? client_of(n, client) : nullptr;
    if (of != nullptr && of->names.size() < MOST_NAMES && keep(of->names, *program))
        offer_by_name(n, client, &*program);
}

void unregister_name(node& n, client_id client, const cpic_datagram& datagram)
{
    const std::optional<tp_name> program = name_of(datagram.tp_name);
    client_record* const of = program ? find_client(n, client) : nullptr;
    if (of != nullptr && of->names.erase(*program) != 0 && of->names.empty())
        offer_by_name(n, client, nullptr);
}

void forget_waiting(node& n, client_id client, client_record& leaving)
{
    while (!leaving.announced.empty())
        forget_announcement(n, *leaving.announced.begin()->second);
    leaving.names.clear();
    leaving.tp_servers.clear();
    forget_definitions(n, leaving, client, nullptr);
    attach* next = n.attaches.first();
    while (attach* const offered = next) {
        next = n.attaches.after(*offered);
        if (offered->offered_to == client)
            refuse_attach(n, *offered);
    }
    pass_on_starts(n, client, nullptr);
}

void expire_attaches(node& n)
{
    for (list_head<attach>* const list : {&n.attaches, &n.starting})
        for (attach* oldest = list->first(); oldest != nullptr && oldest->deadline_ms <= n.now_ms; oldest = list->first())
            end_attach(n, *oldest, NOBODY_TAKES_IT);
}

}  // namespace tessaly::node
