// Handles for pointers: the contract's tables and record handles, and the runtime's own paths, path users and wait objects.
#pragma once

#include "common/types.h"

#include <vector>

namespace tessaly::runtime {

// A handle is the number of its slot and, below it, the slot's generation, so that handle order is slot order and a released
// handle stays invalid for the next 4094 uses of its slot. Freed slots queue up before they are used again.
class handle_space {
public:
    constexpr handle_space() noexcept = default;

    // 0 when the space is full or memory is short. The handle of a null pointer cannot be told from an unknown one.
    u32 create(void* pointer) noexcept;
    void release(u32 handle) noexcept;

    void* pointer_of(u32 handle) const noexcept
    {
        const slot* used = used_slot(handle);
        return used != nullptr ? used->pointer : nullptr;
    }

    // The next used handle after that one, which may have been released meanwhile; 0 to start, 0 when there is none.
    u32 next_used(u32 handle) const noexcept;

    void release_all() noexcept;

    static constexpr u32 slot_number(u32 handle) noexcept { return handle >> GENERATION_BITS; }

private:
    static constexpr u32 GENERATION_BITS = 12;
    static constexpr u32 GENERATION_MASK = (1u << GENERATION_BITS) - 1;
    static constexpr u32 MOST_SLOTS = 1u << (32 - GENERATION_BITS);
    static constexpr u32 RESTING_SLOTS = 64;  // that many slots lie free before the first is used again
    static constexpr u32 NO_SLOT = 0xFFFFFFFF;

    struct slot {
        void* pointer;
        u32 next_free;
        u16 generation;  // never 0, so that no handle is
        bool used;
    };

    static u32 handle_of(u32 number, const slot& used) noexcept { return number << GENERATION_BITS | used.generation; }

    const slot* used_slot(u32 handle) const noexcept
    {
        const u32 number = slot_number(handle);
        if (number >= slots_.size())
            return nullptr;
        const slot& found = slots_[number];
        return found.used && found.generation == (handle & GENERATION_MASK) ? &found : nullptr;
    }

    u32 unused_slot() noexcept;

    std::vector<slot> slots_;
    u32 first_free_ = NO_SLOT;
    u32 last_free_ = NO_SLOT;
    u32 free_slots_ = 0;
};

}  // namespace tessaly::runtime
