// Memory of the verb library and of what is delivered to it. Freed blocks are kept by size, so that a verb in a warm process
// needs no malloc. Guarded by the process lock.
#include "localnode/runtime/memory.h"

#include "runtime/node_runtime.h"

#include <array>
#include <bit>
#include <cstdlib>

namespace tessaly::runtime {

namespace {

constexpr u32 LIVE = 0x4C495645;
constexpr u32 FREED = 0x46524545;

constexpr u32 SMALLEST_BITS = 6;  // 64 bytes
constexpr u32 SIZE_CLASSES = 12;  // up to 128 KiB, which is more than the longest message
constexpr u32 UNPOOLED = SIZE_CLASSES;

#if defined(__SANITIZE_ADDRESS__)
constexpr u32 KEPT_BYTES = 0;  // the sanitizer finds the use of a freed block only when it is really freed
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr u32 KEPT_BYTES = 0;
#else
constexpr u32 KEPT_BYTES = 128 * 1024;
#endif
#else
constexpr u32 KEPT_BYTES = 128 * 1024;  // of each size
#endif

struct free_list {
    block* first = nullptr;
    u32 blocks = 0;
};

constinit std::array<free_list, SIZE_CLASSES> free_lists{};

constexpr u32 size_class_of(u32 bytes) noexcept
{
    const u32 bits = static_cast<u32>(std::bit_width(bytes == 0 ? 0 : bytes - 1));
    return bits <= SMALLEST_BITS ? 0 : bits - SMALLEST_BITS;
}
static_assert(size_class_of(0) == 0 && size_class_of(64) == 0 && size_class_of(65) == 1 && size_class_of(128) == 1);

}  // namespace

block* allocate_block(u32 bytes) noexcept
{
    constexpr u32 LONGEST = 0x7FFFFFFF;
    if (bytes > LONGEST)
        return nullptr;
    const u32 size_class = size_class_of(bytes);
    const bool pooled = size_class < SIZE_CLASSES;
    void* place = nullptr;
    if (pooled && free_lists[size_class].first != nullptr) {
        free_list& kept = free_lists[size_class];
        place = kept.first;
        kept.first = kept.first->next;
        --kept.blocks;
    } else {
        const u32 room = pooled && KEPT_BYTES != 0 ? 1u << (SMALLEST_BITS + size_class) : bytes;
        place = std::malloc(sizeof(block) + room);
    }
    if (place == nullptr)
        return nullptr;
    auto* made = static_cast<block*>(place);
    made->guard = LIVE;
    made->bytes = bytes;
    made->under_way = nullptr;
    made->size_class = static_cast<u8>(pooled ? size_class : UNPOOLED);
    return made;
}

void free_block(block* freed) noexcept
{
    if (freed->guard != LIVE) {
        v0_assert("memory", __LINE__, "what is freed is a live block");
        return;
    }
    if (freed->under_way != nullptr)
        freed->under_way->buffer_freed = true;
    freed->guard = FREED;
    const u32 size_class = freed->size_class;
    if (size_class < SIZE_CLASSES) {
        free_list& kept = free_lists[size_class];
        if (kept.blocks < KEPT_BYTES >> (SMALLEST_BITS + size_class)) {
            freed->next = kept.first;
            kept.first = freed;
            ++kept.blocks;
            return;
        }
    }
    std::free(freed);
}

}  // namespace tessaly::runtime

using namespace tessaly::runtime;

extern "C" void* nba_mm_alloc(uint32_t bytes, uint32_t, const void*, uint32_t, uint32_t)
{
    block* made = allocate_block(bytes);
    return made != nullptr ? made->data() : nullptr;
}

extern "C" void nba_mm_free(void* pointer, uint32_t)
{
    if (pointer != nullptr)
        free_block(static_cast<block*>(pointer) - 1);
}

extern "C" void nba_mm_refresh(uint32_t) {}

extern "C" const uint8_t nba_blank_name[8] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
