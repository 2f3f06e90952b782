// Records in flat tables, named by numbers that stay unique for long: the slot in the low half, its generation in the high
// one. The engine keeps its TPs, conversation sides, attaches and paths in them. Addresses of records never change.
#pragma once

#include "common/types.h"

#include <array>
#include <memory>
#include <new>

namespace tessaly::node {

// A record has a member `u32 id`: its number while it is in use, 0 while it is free. Slots are reused as they were left, so
// whoever takes a record sets all of its fields, and buffers in it keep their memory.
template <typename Record>
class slot_table {
public:
    // Null when the table is full or there is no memory.
    Record* take() noexcept
    {
        if (free_ == NO_SLOT && !grow())
            return nullptr;
        slot& taken = at(free_);
        free_ = taken.next_free;
        taken.record.id = taken.next_id;
        ++in_use_;
        return &taken.record;
    }

    void give_back(Record& record) noexcept
    {
        const u32 number = number_of(record.id);
        renew(record);
        record.id = 0;
        at(number).next_free = free_;
        free_ = number;
        --in_use_;
    }

    // Gives a record in use another number, so that the old one names nothing any more.
    void renew(Record& record) noexcept
    {
        slot& renewed = at(number_of(record.id));
        renewed.next_id = record.id + GENERATION;
        record.id = renewed.next_id;
    }

    Record* find(u32 id) noexcept
    {
        const u32 number = number_of(id);
        if (number >= slots_)
            return nullptr;
        Record& record = at(number).record;
        return record.id == id ? &record : nullptr;
    }

    // Whether that number was a record's that it is no more.
    bool had(u32 id) const noexcept
    {
        constexpr u32 LATELY = 0x8000;  // so many generations ago
        const u32 number = number_of(id);
        if (number >= slots_ || id < GENERATION)
            return false;
        const u32 since = (chunks_[number / CHUNK_SLOTS][number % CHUNK_SLOTS].next_id - id) / GENERATION;
        return since != 0 && since < LATELY;
    }

    u32 in_use() const noexcept { return in_use_; }

    // Calls visit(record) for all in use.
    template <typename Visit>
    void for_each(Visit visit) noexcept
    {
        for (u32 number = 0; number < slots_; ++number)
            if (Record& record = at(number).record; record.id != 0)
                visit(record);
    }

private:
    static constexpr u32 GENERATION = 0x10000;
    static constexpr u32 CHUNK_SLOTS = 64;
    static constexpr u32 CHUNKS = GENERATION / CHUNK_SLOTS - 1;  // slot numbers plus 1 fit the low half
    static constexpr u32 NO_SLOT = 0xFFFFFFFF;

    struct slot {
        Record record{};
        u32 next_id = 0;
        u32 next_free = NO_SLOT;
    };

    static u32 number_of(u32 id) noexcept { return (id % GENERATION) - 1; }  // 0 gives a number past every table

    slot& at(u32 number) noexcept { return chunks_[number / CHUNK_SLOTS][number % CHUNK_SLOTS]; }

    bool grow() noexcept
    {
        const u32 chunk = slots_ / CHUNK_SLOTS;
        if (chunk == CHUNKS)
            return false;
        chunks_[chunk].reset(new (std::nothrow) slot[CHUNK_SLOTS]);
        if (!chunks_[chunk])
            return false;
        for (u32 i = CHUNK_SLOTS; i-- > 0;) {
            const u32 number = slots_ + i;
            at(number).next_id = GENERATION + number + 1;
            at(number).next_free = free_;
            free_ = number;
        }
        slots_ += CHUNK_SLOTS;
        return true;
    }

    std::array<std::unique_ptr<slot[]>, CHUNKS> chunks_;
    u32 slots_ = 0;
    u32 in_use_ = 0;
    u32 free_ = NO_SLOT;
};

}  // namespace tessaly::node
