// Blocks of nba_mm_alloc. Each has a header in front, which also makes it an event of the queue when something is delivered in
// it, so that a delivery needs no memory of its own.
#pragma once

#include "common/types.h"

namespace tessaly::runtime {

// A delivery under way; lives on the stack of the thread that makes it.
struct delivery {
    bool buffer_freed = false;
};

struct block {
    u32 guard;           // tells a live block from any other address
    u32 bytes;           // as asked for
    block* next;         // in the event queue, or among the free blocks of its size
    delivery* under_way; // whom nba_mm_free tells
    u32 path;            // of an event: its path, or its path user
    u32 sequence;        // of an event: numbers them in order of arrival
    u16 event;
    u8 size_class;
    u8 unused[5];

    u8* data() noexcept { return reinterpret_cast<u8*>(this + 1); }
};
static_assert(sizeof(block) == 32, "what follows the header is aligned like the header");

// Null when there is no memory.
block* allocate_block(u32 bytes) noexcept;
void free_block(block* freed) noexcept;

}  // namespace tessaly::runtime
