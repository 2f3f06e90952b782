// Definitions are few and change rarely, so they are walked.
#include "localnode/engine/tp_definitions.h"

#include "localnode/engine/clients.h"
#include "localnode/engine/replies.h"
#include "localnode/engine/starts.h"

#include <cerrno>
#include <compare>

namespace tessaly::node {

namespace {

constexpr u32 MOST_DEFINITIONS = 1000;  // of a client
constexpr u32 MOST_SERVERS = 1000;      // of a client

struct closeness {
    bool lu = false;
    u8 kind = 0;  // of the partner's name
    u8 bytes = 0;
    auto operator<=>(const closeness&) const = default;
};

fq_lu_name::const_iterator lu_part(const fq_lu_name& name) noexcept
{
    const auto period = std::ranges::find(name, EBCDIC_PERIOD);
    return period == name.end() ? period : period + 1;
}

// How closely a partner's name fits a pattern. None when it does not.
std::optional<closeness> partner_fits(const fq_lu_name& pattern, const fq_lu_name& name) noexcept
{
    enum : u8 { ANY, ANY_NETWORK, PATTERN, EXACT };
    if (is_blank(pattern))
        return closeness{.kind = ANY};
    const auto star = std::ranges::find(pattern, EBCDIC_ASTERISK);
    if (star == pattern.end())
        return pattern == name ? std::optional{closeness{.kind = EXACT}} : std::nullopt;
    const bool has_network = std::find(pattern.begin(), star, EBCDIC_PERIOD) != star;
    const auto from = has_network ? name.begin() : lu_part(name);
    const auto bytes = star - pattern.begin();
    if (name.end() - from < bytes || !std::equal(pattern.begin(), star, from))
        return std::nullopt;
    return closeness{.kind = has_network ? PATTERN : ANY_NETWORK, .bytes = static_cast<u8>(bytes)};
}

std::optional<closeness> closeness_of(const tp_definition& definition, const conv_side& incoming,
                                      const fq_lu_name& partner) noexcept
{
    const startable_tp& tp = definition.starts;
    if (tp.program != incoming.program || (tp.lu != ANY_LU && tp.lu != incoming.local_lu))
        return std::nullopt;
    std::optional<closeness> found = partner_fits(tp.partner, partner);
    if (found)
        found->lu = tp.lu != ANY_LU;
    return found;
}

void forget(node& n, client_record& of, tp_definition& gone) noexcept
{
    unlink(gone.link);
    --of.definitions;
    n.definition_table.give_back(gone);
    n.definitions_changed = n.queues_moved = true;
}

// What a datagram defines; false when it is nothing that could be.
bool read(const update_tp_info_datagram& datagram, startable_tp& into) noexcept
{
    into.type = datagram.tp_type;
    into.program = name_in<tp_name>(datagram.tp_name);
    into.partner = name_in<fq_lu_name>(datagram.fqplu_name);
    into.start_value = datagram.start_value;
    std::copy_n(datagram.lu_alias, into.lu.size(), into.lu.begin());
    if (into.lu == lu_alias{})
        into.lu = ANY_LU;
    return into.type >= START_EACH && into.type <= START_NEVER && !is_blank(into.program);
}

bool is_same(const startable_tp& one, const startable_tp& other) noexcept
{
    return one.program == other.program && one.lu == other.lu && one.partner == other.partner;
}

tp_definition* find_same(node& n, const startable_tp& wanted, u32 but) noexcept
{
    for (tp_definition* each = n.definitions.first(); each != nullptr; each = n.definitions.after(*each))
        if (each->id != but && is_same(each->starts, wanted))
            return each;
    return nullptr;
}

// Who sends something is there.
void trust(node& n, client_id client, u32 server) noexcept
{
    for (tp_definition* each = n.definitions.first(); each != nullptr; each = n.definitions.after(*each))
        if (each->client == client && each->server == server)
            each->doubtful = false;
}

tp_definition* add(node& n, client_record& of) noexcept
{
    tp_definition* const made = of.definitions < MOST_DEFINITIONS ? n.definition_table.take() : nullptr;
    if (made == nullptr)
        return nullptr;
    made->under_way = 0;
    made->doubtful = false;
    n.definitions.append(*made);
    ++of.definitions;
    return made;
}

// Result: the status for the answer.
u32 update(node& n, client_record& of, client_id client, const update_tp_info_datagram& datagram, u32& tp_reg_id)
{
    tp_definition* named = nullptr;
    if (datagram.action != TPS_TP_ADD) {
        named = n.definition_table.find(datagram.tp_reg_id);
        if (named == nullptr || named->client != client || named->server != datagram.server_handle)
            return UPDATE_TP_NOT_DEFINED;
        tp_reg_id = named->id;
    }
    if (datagram.action == TPS_TP_DELETE) {
        forget(n, of, *named);
        return UPDATE_TP_DONE;
    }
    startable_tp wanted;
    if (datagram.action > TPS_TP_REPLACE || !read(datagram, wanted))
        return EINVAL;
    if (tp_definition* const same = find_same(n, wanted, tp_reg_id)) {
        // Of a server that has probably ended, whose place this one takes.
        if (same->client != client || same->server == datagram.server_handle || !same->doubtful)
            return UPDATE_TP_ALREADY_DEFINED;
        forget(n, of, *same);
    }
    if (named == nullptr)
        named = add(n, of);
    if (named == nullptr)
        return ENOSPC;
    named->client = client;
    named->server = datagram.server_handle;
    named->starts = wanted;
    if (wanted.type != START_QUEUED)
        named->under_way = 0;
    tp_reg_id = named->id;
    n.definitions_changed = n.queues_moved = true;
    return UPDATE_TP_DONE;
}

}  // namespace

tp_definition* best_definition(const node& n, const conv_side& incoming) noexcept
{
    if (n.definitions.empty())
        return nullptr;
    const fq_lu_name partner = n.lus.full_name(incoming.partner_lu);
    tp_definition* best = nullptr;
    std::optional<closeness> closest;
    for (tp_definition* each = n.definitions.first(); each != nullptr; each = n.definitions.after(*each))
        if (const std::optional<closeness> found = closeness_of(*each, incoming, partner); found > closest) {
            best = each;
            closest = found;
        }
    return best;
}

bool fits(const node& n, const tp_definition& definition, const conv_side& incoming) noexcept
{
    return closeness_of(definition, incoming, n.lus.full_name(incoming.partner_lu)).has_value();
}

void update_definition(node& n, client_id client, const update_tp_info_datagram& datagram)
{
    update_tp_rsp_datagram answer{};
    answer.header = {sizeof answer, TPS_MSG_UPDATE_TP_RSP};
    answer.correlator = datagram.correlator;
    client_record* const of = find_client(n, client);
    if (of == nullptr || of->tp_servers.empty() || !of->rights.tp_server) {
        answer.status = EPERM;
    } else {
        trust(n, client, datagram.server_handle);
        answer.status = update(n, *of, client, datagram, answer.tp_reg_id);
    }
    send_datagram(n, client, answer);
    if (answer.status == UPDATE_TP_DONE && datagram.action != TPS_TP_DELETE)
        start_waiting(n, *n.definition_table.find(answer.tp_reg_id));
}

void forget_definitions(node& n, client_record& of, client_id client, const u32* server) noexcept
{
    tp_definition* next = of.definitions == 0 ? nullptr : n.definitions.first();
    while (tp_definition* const each = next) {
        next = n.definitions.after(*each);
        if (each->client == client && (server == nullptr || each->server == *server))
            forget(n, of, *each);
    }
}

void open_tp_server(node& n, client_id client, u32 number, client_rights rights)
{
    client_record* const of = client_of(n, client);
    if (of == nullptr)
        return;
    of->rights = rights;
    if (of->tp_servers.size() < MOST_SERVERS)
        keep(of->tp_servers, number);
}

void close_tp_server(node& n, client_id client, u32 number)
{
    client_record* const of = find_client(n, client);
    if (of == nullptr || of->tp_servers.erase(number) == 0)
        return;
    if (of->tp_servers.empty()) {
        forget_server(n, *of, client, nullptr);
        return;
    }
    for (tp_definition* each = n.definitions.first(); each != nullptr; each = n.definitions.after(*each))
        each->doubtful |= each->client == client;
}

void tell_changes(node& n)
{
    n.definitions_changed = false;
    constexpr datagram_header changed{sizeof changed, TPS_MSG_TP_FILE_STATUS};
    for (const auto& [id, client] : n.clients)
        if (!client.tp_servers.empty() && client.rights.tp_server)
            send_datagram(n, id, changed);
}

}  // namespace tessaly::node
