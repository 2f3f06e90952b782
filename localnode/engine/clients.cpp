// Finds clients and counts what they have.
#include "localnode/engine/clients.h"

namespace tessaly::node {

namespace {

// A TP, its conversations and the attaches that brought them, as its path leads to them.
void count_program(const tp& program, record_counts& reached) noexcept
{
    ++reached.tps;
    for (const conv_side* side = program.sides.first(); side != nullptr; side = program.sides.after(*side)) {
        ++reached.sides;
        reached.attaches += side->arrival != nullptr;
    }
}

}  // namespace

client_record* find_client(node& n, client_id client) noexcept
{
    const auto found = n.clients.find(client);
    return found == n.clients.end() ? nullptr : &found->second;
}

client_record* client_of(node& n, client_id client) noexcept
{
    try {
        return &n.clients[client];
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

record_counts count_records(const node& n) noexcept
{
    record_counts reached;
    for (const auto& [client, has] : n.clients) {
        reached.announcements += static_cast<u32>(has.announced.size());
        reached.names += static_cast<u32>(has.names.size());
        reached.paths += static_cast<u32>(has.paths.size());
        reached.tp_servers += static_cast<u32>(has.tp_servers.size());
        reached.definitions += has.definitions;
        for (const auto& [number, path] : has.paths)
            if (path->user != nullptr && !path->failed)
                count_program(*path->user, reached);
    }
    for (const list_head<attach>* const list : {&n.attaches, &n.starting})
        for (const attach* waiting = list->first(); waiting != nullptr; waiting = list->after(*waiting)) {
            ++reached.attaches;
            ++reached.sides;
        }

    record_counts used;
    used.paths = n.path_table.in_use();
    used.tps = n.tp_table.in_use();
    used.sides = n.side_table.in_use();
    used.attaches = n.attach_table.in_use();
    used.announcements = n.announced_table.in_use();
    used.names = reached.names;
    used.tp_servers = reached.tp_servers;
    used.definitions = n.definition_table.in_use();
    for (const path_record* path = n.lost.first(); path != nullptr; path = n.lost.after(*path))
        ++used.lost_paths;
    used.unreachable = used.paths - reached.paths + used.tps - reached.tps + used.sides - reached.sides + used.attaches -
                       reached.attaches + used.announcements - reached.announcements + used.definitions - reached.definitions;
    return used;
}

}  // namespace tessaly::node
