// Handles for pointers: the contract's tables and record handles, and the runtime's own paths, path users and wait objects.
#pragma once

#include "common/types.h"

#include <cstdlib>

namespace tessaly::runtime {

// A handle is the number of its slot and, below it, the slot's generation, so that handle order is slot order and a released
// handle stays invalid for the next 4094 uses of its slot. Freed slots queue up before they are used again.
class handle_space {
public:
    constexpr handle_space() noexcept = default;
    handle_space(const handle_space&) = delete;
    handle_space& operator=(const handle_space&) = delete;
    ~handle_space() { std::free(slots_); }

    // 0 when the space is full or memory is short. The handle of a null pointer cannot be told from an unknown one.
    u32 create(void* pointer) noexcept
    {
        if (free_slots_ <= RESTING_SLOTS && !add_slot()) [[unlikely]]
            return 0;
        const u32 number = first_free_;
        slot& made = slots_[number];
        first_free_ = made.next_free;
        --free_slots_;
        made.pointer = pointer;
        made.handle = number << GENERATION_BITS | made.generation;
        return made.handle;
    }

    void release(u32 handle) noexcept
    {
        if (!is_used(handle))
            return;
        const u32 number = slot_number(handle);
        slot& freed = slots_[number];
        freed.pointer = nullptr;
        freed.handle = NO_HANDLE;
        freed.generation = freed.generation == GENERATION_MASK ? 1 : freed.generation + 1;
        append_free(number);
    }

    void* pointer_of(u32 handle) const noexcept { return is_used(handle) ? slots_[slot_number(handle)].pointer : nullptr; }

    // The next used handle after that one, which may have been released meanwhile; 0 to start, 0 when there is none.
    u32 next_used(u32 handle) const noexcept;

    u32 slots() const noexcept { return slot_number(end_); }
    static constexpr u32 slot_number(u32 handle) noexcept { return handle >> GENERATION_BITS; }

private:
    static constexpr u32 GENERATION_BITS = 12;
    static constexpr u32 GENERATION_MASK = (1u << GENERATION_BITS) - 1;
    static constexpr u32 MOST_SLOTS = (1u << (32 - GENERATION_BITS)) - 1;  // one less, so that no slot has NO_HANDLE
    static constexpr u32 RESTING_SLOTS = 64;  // that many slots lie free before the first is used again
    static constexpr u32 NO_HANDLE = 0xFFFFFFFF;

    struct slot {
        void* pointer;
        u32 handle;  // NO_HANDLE while it is free
        u32 generation;  // never 0, so that no handle is
        u32 next_free;
    };

    bool is_used(u32 handle) const noexcept
    {
        return handle < end_ && slots_[slot_number(handle)].handle == handle;
    }

    void append_free(u32 number) noexcept
    {
        if (free_slots_++ == 0)
            first_free_ = number;
        else
            slots_[last_free_].next_free = number;
        last_free_ = number;
    }

    // Result: whether a slot is free now, if only a resting one.
    bool add_slot() noexcept;

    slot* slots_ = nullptr;
    u32 end_ = 0;   // all handles given out are below: the number of slots, as the upper bits of a handle
    u32 room_ = 0;  // for so many slots
    u32 first_free_ = 0;  // these two mean nothing while no slot is free
    u32 last_free_ = 0;
    u32 free_slots_ = 0;
};

}  // namespace tessaly::runtime
