// Circular doubly linked lists whose links are the first member of their records. A head's owner is null, which is how the end
// of a list, or an empty one, is recognised. Records are linked and unlinked in constant time and own nothing of each other.
#pragma once

#include "common/types.h"

namespace tessaly {

struct list_link {
    list_link* next;
    list_link* previous;
    void* owner;  // the record itself; null in a head
};

// A record that is in no list has null links.
template <typename Record>
void init_link(Record& record) noexcept
{
    record.link = {nullptr, nullptr, &record};
}

inline bool is_linked(const list_link& link) noexcept
{
    return link.next != nullptr;
}

inline void unlink(list_link& link) noexcept
{
    link.next->previous = link.previous;
    link.previous->next = link.next;
    link.next = nullptr;
    link.previous = nullptr;
}

template <typename Record>
struct list_head {
    list_link link;

    void init() noexcept { link = {&link, &link, nullptr}; }

    bool empty() const noexcept { return link.next == &link; }

    Record* first() const noexcept { return static_cast<Record*>(link.next->owner); }  // null when empty

    // The record behind another one of this list; null behind the last.
    Record* after(const Record& record) const noexcept { return static_cast<Record*>(record.link.next->owner); }

    bool holds_only(const Record& record) const noexcept
    {
        return link.next == &record.link && record.link.next == &link;
    }

    void append(Record& record) noexcept
    {
        record.link = {&link, link.previous, &record};
        link.previous->next = &record.link;
        link.previous = &record.link;
    }
};

}  // namespace tessaly
