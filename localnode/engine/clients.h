// What clients have at the node, found by the clients' own names for it, so that no walk over everybody's records is needed.
#pragma once

#include "localnode/engine/node.h"

#include <new>

namespace tessaly::node {

// Null when the client has nothing here.
client_record* find_client(node& n, client_id client) noexcept;

// The same; makes the record when there is none. Null when there is no memory.
client_record* client_of(node& n, client_id client) noexcept;

// Puts an element into one of a client's containers. False when there is no memory.
template <typename Container>
bool keep(Container& in, const typename Container::value_type& element) noexcept
{
    try {
        in.insert(element);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// What the container has under that name of the client's; null when there is nothing.
template <typename Record>
Record* find_in(const std::map<u32, Record*>& records, u32 number) noexcept
{
    const auto found = records.find(number);
    return found == records.end() ? nullptr : found->second;
}

record_counts count_records(const node& n) noexcept;

}  // namespace tessaly::node
