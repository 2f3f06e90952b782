// Matches attaches with announced TPs, in the order in which both came.
#include "localnode/engine/attaches.h"

#include "localnode/engine/conversations.h"
#include "localnode/engine/replies.h"

#include <algorithm>

namespace tessaly::node {

namespace {

constexpr u64 ATTACH_LIMIT_MS = 30'000;
constexpr u32 MOST_ATTACHES = 1000;

// The name in a datagram; none when its length cannot be.
std::optional<tp_name> name_of(const counted_tp_name& counted) noexcept
{
    if (counted.length > TP_NAME_BYTES)
        return std::nullopt;
    u8 used[TP_NAME_BYTES] = {};
    std::copy_n(counted.name, counted.length, used);
    return name_in<tp_name>(used);
}

bool has_registered(node& n, client_id client, const tp_name* program) noexcept
{
    return n.name_table.first_where([&](const registered_name& name) {
        return name.client == client && (program == nullptr || name.program == *program);
    }) != nullptr;
}

bool accepts(node& n, const announced_tp& waiting, const conv_side& incoming) noexcept
{
    if (waiting.lu != ANY_LU && waiting.lu != incoming.local_lu)
        return false;
    if (waiting.registered_names)
        return has_registered(n, waiting.client, &incoming.program) || !has_registered(n, waiting.client, nullptr);
    return is_blank(waiting.program) || waiting.program == incoming.program;
}

void forget_announcement(node& n, announced_tp& waiting) noexcept
{
    unlink(waiting.link);
    n.announced_table.give_back(waiting);
}

// Under a number of its own each time, so that a late response to an earlier offer means nothing.
void offer(node& n, attach& offered, client_id client, u32 tp_handle)
{
    n.attach_table.renew(offered);
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

// After a change of what announced TPs accept.
void offer_what_waits(node& n)
{
    for (attach* arrived = n.attaches.first(); arrived != nullptr; arrived = n.attaches.after(*arrived))
        if (arrived->offered_to == 0)
            offer_to_waiting(n, *arrived);
}

void list_attach(node& n, attach& arrived) noexcept
{
    arrived.deadline_ms = n.now_ms + ATTACH_LIMIT_MS;
    n.attaches.append(arrived);
    ++n.waiting_attaches;
}

void unlist_attach(node& n, attach& taken) noexcept
{
    unlink(taken.link);
    --n.waiting_attaches;
}

// Nobody takes the conversation.
void give_up(node& n, attach& arrived)
{
    end_side(n, *arrived.side, NOBODY_TAKES_IT);
}

announced_tp* find_announced(node& n, client_id client, u32 tp_handle) noexcept
{
    announced_tp* waiting = n.announced.first();
    while (waiting != nullptr && (waiting->client != client || waiting->tp_handle != tp_handle))
        waiting = n.announced.after(*waiting);
    return waiting;
}

registered_name* find_name(node& n, client_id client, const tp_name& program) noexcept
{
    return n.name_table.first_where(
        [&](const registered_name& name) { return name.client == client && name.program == program; });
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

bool send_attach(node& n, conv_side& incoming)
{
    if (n.waiting_attaches >= MOST_ATTACHES)
        return false;
    attach* const arrived = n.attach_table.take();
    if (arrived == nullptr)
        return false;
    init_link(*arrived);
    arrived->side = &incoming;
    arrived->offered_to = 0;
    arrived->tp_handle = 0;
    incoming.arrival = arrived;
    list_attach(n, *arrived);
    offer_to_waiting(n, *arrived);
    return true;
}

attach* take_attach(node& n, u32 attach_corr, client_id client, u32 tp_handle)
{
    attach* const offered = n.attach_table.find(attach_corr);
    if (offered == nullptr || offered->offered_to != client || offered->tp_handle != tp_handle ||
        !is_linked(offered->link))
        return nullptr;
    unlist_attach(n, *offered);
    return offered;
}

void drop_attach(node& n, attach& done)
{
    done.side->arrival = nullptr;
    if (is_linked(done.link))
        unlist_attach(n, done);
    n.attach_table.give_back(done);
}

void refuse_attach(node& n, attach& refused)
{
    if (refused.side->owner != nullptr)
        unbind(*refused.side);
    if (!is_linked(refused.link))
        list_attach(n, refused);
    refused.offered_to = 0;
    if (!offer_to_waiting(n, refused))
        give_up(n, refused);
}

void announce(node& n, client_id client, const announce_datagram& datagram)
{
    const std::optional<tp_name> program = name_of(datagram.tp_name);
    if (!program)
        return;
    if (announced_tp* const earlier = find_announced(n, client, datagram.src_corr))
        forget_announcement(n, *earlier);
    announced_tp* const waiting = n.announced_table.take();
    if (waiting == nullptr) {
        send_announcement_failed(n, client, datagram.src_corr);
        return;
    }
    init_link(*waiting);
    read_announcement(*waiting, client, datagram, *program);
    n.announced.append(*waiting);

    attach* arrived = n.attaches.first();
    while (arrived != nullptr && (arrived->offered_to != 0 || !accepts(n, *waiting, *arrived->side)))
        arrived = n.attaches.after(*arrived);
    if (arrived != nullptr) {
        forget_announcement(n, *waiting);
        offer(n, *arrived, client, datagram.src_corr);
    }
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
    if (!program || find_name(n, client, *program) != nullptr)
        return;
    if (registered_name* const name = n.name_table.take()) {
        name->client = client;
        name->program = *program;
    }
    offer_what_waits(n);
}

void unregister_name(node& n, client_id client, const cpic_datagram& datagram)
{
    const std::optional<tp_name> program = name_of(datagram.tp_name);
    if (!program)
        return;
    if (registered_name* const name = find_name(n, client, *program))
        n.name_table.give_back(*name);
    offer_what_waits(n);  // a client without names accepts any
}

void forget_client(node& n, client_id client)
{
    n.announced_table.for_each([&](announced_tp& waiting) {
        if (waiting.client == client)
            forget_announcement(n, waiting);
    });
    n.name_table.for_each([&](registered_name& name) {
        if (name.client == client)
            n.name_table.give_back(name);
    });
    n.attach_table.for_each([&](attach& offered) {
        if (offered.offered_to == client && is_linked(offered.link))
            refuse_attach(n, offered);
    });
}

void expire_attaches(node& n)
{
    while (attach* const oldest = n.attaches.first()) {
        if (oldest->deadline_ms > n.now_ms)
            return;
        give_up(n, *oldest);
    }
}

}  // namespace tessaly::node
