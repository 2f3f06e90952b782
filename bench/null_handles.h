// Handles of the null runtime: the number of a slot, and above it the slot's generation, so that a handle costs an array
// access to look up and a released one is not taken for its successor.
#pragma once

#include "common/types.h"

namespace tessaly::bench {

template <u32 SLOTS>
class handle_space {
    static_assert(SLOTS <= 0x10000, "a slot's number is the lower half of its handles");

public:
    // 0 when all slots are in use.
    u32 create(void* pointer) noexcept
    {
        u32 number = first_free_;
        if (number != 0)
            first_free_ = slots_[number].next_free;
        else if (slots_made_ + 1 < SLOTS)
            number = ++slots_made_;
        else
            return 0;
        slots_[number].pointer = pointer;
        return handle_of(number);
    }

    void release(u32 handle) noexcept
    {
        const u32 number = handle % 0x10000;
        if (pointer_of(handle) == nullptr)
            return;
        slots_[number].pointer = nullptr;
        ++slots_[number].generation;
        slots_[number].next_free = static_cast<u16>(first_free_);
        first_free_ = number;
    }

    void* pointer_of(u32 handle) const noexcept
    {
        const u32 number = handle % 0x10000;
        return number < SLOTS && slots_[number].generation == handle >> 16 ? slots_[number].pointer : nullptr;
    }

    u32 next_used(u32 handle, void** out) const noexcept
    {
        for (u32 number = handle % 0x10000 + 1; number <= slots_made_; ++number) {
            if (slots_[number].pointer == nullptr)
                continue;
            *out = slots_[number].pointer;
            return handle_of(number);
        }
        return 0;
    }

private:
    struct slot {
        void* pointer;
        u16 generation;
        u16 next_free;
    };

    u32 handle_of(u32 number) const noexcept { return u32{slots_[number].generation} << 16 | number; }

    slot slots_[SLOTS] = {};  // the first is never used, so that no handle is 0
    u32 slots_made_ = 0;
    u32 first_free_ = 0;
};

}  // namespace tessaly::bench
