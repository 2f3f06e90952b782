// The contract's handle tables and record handles. Guarded by the process lock.
#include "localnode/runtime/handle_space.h"
#include "localnode/runtime/never_destroyed.h"
#include "localnode/runtime/record_handles.h"

#include "runtime/node_runtime.h"

#include <algorithm>
#include <memory>
#include <new>
#include <vector>

namespace tessaly::runtime {

// A new slot goes to the front of the queue, where it is used next.
bool handle_space::add_slot() noexcept
{
    const u32 number = slots();
    if (number == room_ && number < MOST_SLOTS) {
        const u32 room = std::min(std::max(2 * room_, 2 * RESTING_SLOTS), MOST_SLOTS);
        if (void* moved = std::realloc(slots_, room * sizeof(slot))) {
            slots_ = static_cast<slot*>(moved);
            room_ = room;
        }
    }
    if (number == room_)
        return free_slots_ != 0;  // a resting slot is better than none
    slots_[number] = {.pointer = nullptr, .handle = NO_HANDLE, .generation = 1, .next_free = first_free_};
    end_ = (number + 1) << GENERATION_BITS;
    first_free_ = number;
    if (free_slots_++ == 0)
        last_free_ = number;
    return true;
}

u32 handle_space::next_used(u32 handle) const noexcept
{
    for (u32 number = handle == 0 ? 0 : slot_number(handle) + 1; number < slots(); ++number)
        if (slots_[number].handle != NO_HANDLE)
            return slots_[number].handle;
    return 0;
}

namespace {

constinit never_destroyed<handle_space> tables;
constinit never_destroyed<handle_space> records;

struct noted_limit {
    u32 record = 0;
    receive_limit limit;
};
constinit never_destroyed<std::vector<noted_limit>> limits;  // by slot of the record's handle

handle_space* table_of(u32 table) noexcept
{
    return static_cast<handle_space*>(tables->pointer_of(table));
}

}  // namespace

bool note_receive_limit(u32 record, receive_limit limit) noexcept
{
    if (records->pointer_of(record) == nullptr)
        return true;  // nothing is ever delivered for it
    const u32 number = handle_space::slot_number(record);
    try {
        if (number >= limits->size())
            limits->resize(number + 1);
    } catch (const std::bad_alloc&) {
        return false;
    }
    (*limits)[number] = {record, limit};
    return true;
}

u32 receive_limit_of(u32 record, u32 path) noexcept
{
    const u32 number = handle_space::slot_number(record);
    if (records->pointer_of(record) == nullptr || number >= limits->size())
        return 0;
    const noted_limit& noted = (*limits)[number];
    return noted.record == record && noted.limit.path == path ? noted.limit.bytes : 0;
}

}  // namespace tessaly::runtime

using namespace tessaly::runtime;

extern "C" void vtm_table_init(uint32_t* table, uint32_t)
{
    if (table == nullptr)
        return;
    *table = 0;
    std::unique_ptr<handle_space> made{new (std::nothrow) handle_space};
    if (made == nullptr)
        return;
    *table = tables->create(made.get());
    if (*table != 0)
        made.release();
}

extern "C" void vtm_table_terminate(uint32_t* table)
{
    if (table == nullptr)
        return;
    delete table_of(*table);
    tables->release(*table);
    *table = 0;
}

extern "C" uint32_t vtm_get_free_entry(uint32_t table, void* pointer)
{
    handle_space* found = table_of(table);
    return found != nullptr ? found->create(pointer) : 0;
}

extern "C" void* vtm_get_pointer(uint32_t table, uint32_t handle)
{
    const handle_space* found = table_of(table);
    return found != nullptr ? found->pointer_of(handle) : nullptr;
}

extern "C" void vtm_release_entry(uint32_t table, uint32_t handle)
{
    if (handle_space* found = table_of(table))
        found->release(handle);
}

extern "C" uint32_t vtm_get_next_used(uint32_t table, uint32_t handle, void** out)
{
    const handle_space* found = table_of(table);
    const uint32_t next = found != nullptr ? found->next_used(handle) : 0;
    if (next != 0 && out != nullptr)
        *out = found->pointer_of(next);
    return next;
}

extern "C" uint32_t nba_create_handle(void* pointer)
{
    return pointer != nullptr ? records->create(pointer) : 0;
}

extern "C" void nba_destroy_handle(uint32_t handle)
{
    records->release(handle);
}

extern "C" void* nba_validate_handle(uint32_t handle)
{
    return records->pointer_of(handle);
}
