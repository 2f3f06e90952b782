// Paths open, TPs start and end.
#include "localnode/engine/tps.h"

#include "localnode/engine/attaches.h"
#include "localnode/engine/clients.h"
#include "localnode/engine/conversations.h"
#include "localnode/engine/replies.h"

#include <cstring>

namespace tessaly::node {

namespace {

// Ends all conversations of a TP. An attach that it has not taken for certain goes to another TP.
void end_conversations(node& n, tp& ending, const return_codes* for_partners)
{
    while (conv_side* const side = ending.sides.first()) {
        if (side->arrival != nullptr)
            refuse_attach(n, *side->arrival);
        else
            end_side(n, *side, for_partners != nullptr ? *for_partners : abended(*side));
    }
}

void drop_tp(node& n, tp& ended)
{
    ended.path->user = nullptr;
    n.tp_table.give_back(ended);
}

// The path carries nothing any more, so neither does its TP.
void lose_user(node& n, path_record& path)
{
    if (path.user == nullptr)
        return;
    end_conversations(n, *path.user, &PARTNER_LOST);
    drop_tp(n, *path.user);
}

// A logical unit of work of this LU, packed as it travels: no gap between the name and what follows it.
appc_luw_id new_luw(const fq_lu_name& name, u32 number) noexcept
{
    const auto end = std::find(name.begin(), name.end(), EBCDIC_BLANK);
    appc_luw_id luw{};
    luw.fq_lu_name_len = static_cast<u8>(end - name.begin());
    u8* at = std::copy(name.begin(), end, luw.fq_lu_name);
    std::memcpy(at, &number, sizeof number);
    at[sizeof luw.instance + 1] = 1;  // the sequence number's low byte
    return luw;
}

void init_path(path_record& path, client_id client, u32 number) noexcept
{
    init_link(path);
    path.client = client;
    path.number = number;
    path.failed = false;
    path.user = nullptr;
}

}  // namespace

path_record* find_path(node& n, client_id client, u32 number) noexcept
{
    const client_record* const found = find_client(n, client);
    return found != nullptr ? find_in(found->paths, number) : nullptr;
}

void open_path(node& n, client_id client, u32 number)
{
    if (path_record* const open = find_path(n, client, number))
        close_path(n, *open);
    client_record* const of = client_of(n, client);
    path_record* const path = of != nullptr ? n.path_table.take() : nullptr;
    if (path != nullptr && keep(of->paths, {number, path})) {
        init_path(*path, client, number);
        return;
    }
    if (path != nullptr)
        n.path_table.give_back(*path);
    send_path_failed(n, client, number);
}

void close_path(node& n, path_record& path)
{
    lose_user(n, path);
    if (is_linked(path.link))
        unlink(path.link);
    find_client(n, path.client)->paths.erase(path.number);
    n.path_table.give_back(path);
}

void fail_path(node& n, path_record& path)
{
    if (path.failed)
        return;
    path.failed = true;
    lose_user(n, path);
    send_path_failed(n, path.client, path.number);
}

void fail_lost_paths(node& n)
{
    while (path_record* const path = n.lost.first()) {
        unlink(path->link);
        lose_user(n, *path);
    }
}

void client_gone(node& n, client_id client)
{
    client_record* const leaving = find_client(n, client);
    if (leaving == nullptr)
        return;
    // It is told nothing any more, not even by a conversation of which it had both sides.
    for (const auto& [number, path] : leaving->paths)
        path->failed = true;
    forget_waiting(n, client, *leaving);
    while (!leaving->paths.empty())
        close_path(n, *leaving->paths.begin()->second);
    n.clients.erase(client);
}

tp* begin_tp(node& n, path_record& path, u32 client_corr)
{
    tp* const started = n.tp_table.take();
    if (started == nullptr)
        return nullptr;
    started->path = &path;
    started->client_corr = client_corr;
    started->lu = DEFAULT_LU;
    started->name.fill(EBCDIC_BLANK);
    started->user.fill(EBCDIC_BLANK);
    started->protected_luw = {};
    started->unprotected_luw = {};
    started->sides.init();
    path.user = started;
    return started;
}

void put_tp_id(u8 (&field)[TP_ID_BYTES], const tp& program) noexcept
{
    const u32 id[] = {program.id, ~program.id};
    static_assert(sizeof id == sizeof field);
    std::memcpy(field, id, sizeof id);
}

bool is_tp_id(const u8 (&field)[TP_ID_BYTES], const tp& program) noexcept
{
    return load<u32>(field, 0) == program.id && tp_handle_in(field) == ~program.id;
}

verdict tp_started(node& n, request& verb)
{
    auto& block = block_as<appc_tp_started>(verb.block);
    const std::optional<lu_alias> lu = n.lus.local(block.lu_alias);
    if (!lu)
        return refuse(verb, PARAMETER_CHECK, APPC_SEC_BAD_LU_ALIAS);
    tp* const started = begin_tp(n, *verb.path, verb.header->src_corr);
    if (started == nullptr)
        return refuse(verb, UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY);
    started->lu = *lu;
    started->name = name_in<tp_name>(block.tp_name);
    started->protected_luw = started->unprotected_luw = new_luw(n.lus.full_name(*lu), started->id);
    put(block.lu_alias, *lu);
    put(block.fq_lu_name, n.lus.full_name(*lu));
    put_tp_id(block.tp_id, *started);
    return verdict::answer;
}

verdict tp_ended(node& n, request& verb)
{
    end_conversations(n, *verb.user, nullptr);
    answer(n, *verb.path, verb);
    drop_tp(n, *verb.user);
    return verdict::answered;
}

verdict set_tp_properties(request& verb) noexcept
{
    const auto& block = block_as<appc_set_tp_properties>(verb.block);
    tp& program = *verb.user;
    // Only under a flag of 1 does the library pack the identifier.
    if (block.set_prot_id == 1)
        program.protected_luw = block.prot_id;
    if (block.set_unprot_id == 1)
        program.unprotected_luw = block.unprot_id;
    if (block.set_user_id != 0)
        program.user = name_in<user_name>(block.user_id);
    return verdict::answer;
}

verdict get_tp_properties(const node& n, request& verb) noexcept
{
    auto& block = block_as<appc_get_tp_properties>(verb.block);
    const tp& program = *verb.user;
    put(block.tp_name, program.name);
    put(block.lu_alias, program.lu);
    block.luw_id = program.protected_luw;
    put(block.fq_lu_name, n.lus.full_name(program.lu));
    put(block.user_id, program.user);
    if (block.format != 0)
        block.unprot_luw_id = program.unprotected_luw;
    return verdict::answer;
}

}  // namespace tessaly::node
