// The contract's handle tables and record handles. Guarded by the process lock.
#include "localnode/runtime/handle_space.h"
#include "localnode/runtime/never_destroyed.h"
#include "localnode/runtime/record_handles.h"

#include "runtime/node_runtime.h"

#include <memory>
#include <new>

namespace tessaly::runtime {

u32 handle_space::unused_slot() noexcept
{
    const bool can_grow = slots_.size() < MOST_SLOTS;
    if (free_slots_ <= RESTING_SLOTS && can_grow) {
        try {
            slots_.push_back({.pointer = nullptr, .next_free = NO_SLOT, .generation = 1, .used = false});
            return static_cast<u32>(slots_.size() - 1);
        } catch (const std::bad_alloc&) {
            // A resting slot is better than none.
        }
    }
    if (free_slots_ == 0)
        return NO_SLOT;
    const u32 number = first_free_;
    first_free_ = slots_[number].next_free;
    if (first_free_ == NO_SLOT)
        last_free_ = NO_SLOT;
    --free_slots_;
    return number;
}

u32 handle_space::create(void* pointer) noexcept
{
    const u32 number = unused_slot();
    if (number == NO_SLOT)
        return 0;
    slot& made = slots_[number];
    made.pointer = pointer;
    made.used = true;
    return handle_of(number, made);
}

void handle_space::release(u32 handle) noexcept
{
    if (used_slot(handle) == nullptr)
        return;
    const u32 number = slot_number(handle);
    slot& freed = slots_[number];
    freed.pointer = nullptr;
    freed.used = false;
    freed.generation = static_cast<u16>(freed.generation == GENERATION_MASK ? 1 : freed.generation + 1);
    freed.next_free = NO_SLOT;
    if (last_free_ == NO_SLOT)
        first_free_ = number;
    else
        slots_[last_free_].next_free = number;
    last_free_ = number;
    ++free_slots_;
}

u32 handle_space::next_used(u32 handle) const noexcept
{
    for (u32 number = handle == 0 ? 0 : slot_number(handle) + 1; number < slots_.size(); ++number)
        if (slots_[number].used)
            return handle_of(number, slots_[number]);
    return 0;
}

void handle_space::release_all() noexcept
{
    for (u32 handle = next_used(0); handle != 0; handle = next_used(handle))
        release(handle);
}

namespace {

constinit never_destroyed<handle_space> tables;
constinit never_destroyed<handle_space> records;
constinit never_destroyed<std::vector<receive_limit>> limits;  // by slot of the record's handle

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
    (*limits)[number] = limit;
    return true;
}

u32 receive_limit_of(u32 record, u32 path) noexcept
{
    const u32 number = handle_space::slot_number(record);
    if (records->pointer_of(record) == nullptr || number >= limits->size())
        return 0;
    const receive_limit& limit = (*limits)[number];
    return limit.path == path ? limit.bytes : 0;
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
    if (pointer == nullptr)
        return 0;
    const uint32_t made = records->create(pointer);
    if (made != 0)
        note_receive_limit(made, {});
    return made;
}

extern "C" void nba_destroy_handle(uint32_t handle)
{
    records->release(handle);
}

extern "C" void* nba_validate_handle(uint32_t handle)
{
    return records->pointer_of(handle);
}
