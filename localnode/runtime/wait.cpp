// Wait objects: vpm_sleep and vpm_wakeup. A sleeping caller delivers what arrives, for itself and for others.
#include "localnode/runtime/wait.h"

#include "localnode/runtime/clock.h"
#include "localnode/runtime/deliverers.h"
#include "localnode/runtime/events.h"
#include "localnode/runtime/fork.h"
#include "localnode/runtime/handle_space.h"
#include "localnode/runtime/never_destroyed.h"
#include "localnode/runtime/paths.h"

#include "runtime/node_runtime.h"

#include <unistd.h>

#include <new>

namespace tessaly::runtime {

namespace {

// Never freed, only used again, since a thread may still be on its way out of one that was released.
struct wait_object : waiter {
    bool over = false;      // the sleep, or the next one: the object was woken or released
    bool in_use = false;    // a thread is in vpm_sleep
    bool released = false;  // meanwhile
    wait_object* next_unused = nullptr;
};

constinit never_destroyed<handle_space> objects;
constinit wait_object* first_unused = nullptr;

wait_object* object_of(u32 handle) noexcept
{
    return static_cast<wait_object*>(objects->pointer_of(handle));
}

void put_aside(wait_object& unused) noexcept
{
    unused.next_unused = first_unused;
    first_unused = &unused;
}

wait_object* take_unused() noexcept
{
    wait_object* object = first_unused;
    if (object != nullptr) {
        first_unused = object->next_unused;
        object->over = false;
        object->released = false;
        return object;
    }
    object = new (std::nothrow) wait_object;
    if (object != nullptr)
        object->start_afresh();
    return object;
}

u64 limit_after(u32 timeout_ms) noexcept
{
    constexpr u32 NO_LIMIT = 0xFFFFFFFF;
    if (timeout_ms == NO_LIMIT)
        return NEVER;
    return timeout_ms == 0 ? 0 : precise_now_ms() + timeout_ms + 1;  // the reading has lost a part of a millisecond
}

// The verb that such a thread waits for is its parent's: it never completes here.
[[noreturn]] void wait_in_vain() noexcept
{
    while (process_lock.held())
        process_lock.drop();
    for (;;)
        pause();
}

void sleep_on(wait_object& object, u64 limit_ms) noexcept
{
    const u32 forks = forks_seen;
    const u32 sent_on = last_sent_on;
    while (!object.over) {
        deliver_waiting(object.over);
        if (forks != forks_seen)
            wait_in_vain();
        if (object.over)
            break;
        if (events_wait()) {
            let_others_in();
        } else {
            if (path* awaited = find_path(sent_on))
                awaited->caller = &object;
            sleep_as_caller(object, limit_ms);
        }
        if (limit_ms != NEVER && precise_now_ms() >= limit_ms)
            break;
    }
}

}  // namespace

void forget_sleeping_threads() noexcept
{
    for (u32 handle = objects->next_used(0); handle != 0; handle = objects->next_used(handle)) {
        object_of(handle)->start_afresh();
        object_of(handle)->in_use = false;
    }
}

}  // namespace tessaly::runtime

using namespace tessaly;
using namespace tessaly::runtime;

extern "C" uint32_t vpm_allocate_wait_object(void)
{
    wait_object* object = take_unused();
    if (object == nullptr)
        return 0;
    const u32 handle = objects->create(object);
    if (handle == 0)
        put_aside(*object);
    return handle;
}

extern "C" void vpm_release_wait_object(uint32_t handle)
{
    wait_object* object = object_of(handle);
    if (object == nullptr)
        return;
    objects->release(handle);
    object->released = true;
    object->over = true;
    if (object->in_use)
        wake(*object);
    else
        put_aside(*object);
}

extern "C" void vpm_sleep(uint32_t handle, uint32_t timeout_ms)
{
    if (!process_lock.held()) {
        v0_assert("wait", __LINE__, "the thread that sleeps holds the lock");
        return;
    }
    wait_object* object = object_of(handle);
    if (object == nullptr)
        return;
    if (object->in_use) {
        v0_assert("wait", __LINE__, "one thread sleeps on a wait object");
        return;
    }
    object->in_use = true;
    sleep_on(*object, limit_after(timeout_ms));
    object->in_use = false;
    object->over = false;
    if (object->released)
        put_aside(*object);
}

extern "C" void vpm_wakeup(uint32_t handle)
{
    wait_object* object = object_of(handle);
    if (object == nullptr)
        return;
    object->over = true;
    wake(*object);
}
