// Notices forks. The thread that calls fork() holds the runtime's locks meanwhile, so that the child finds everything in order,
// and gives them back on both sides. A program may also fork by the bare system call, which runs no handler: the child then
// finds a page that the kernel has cleared.
#include "localnode/runtime/fork.h"

#include "localnode/runtime/deliverers.h"
#include "localnode/runtime/events.h"
#include "localnode/runtime/host.h"
#include "localnode/runtime/lock.h"
#include "localnode/runtime/paths.h"
#include "localnode/runtime/trace_file.h"
#include "localnode/runtime/trace_switch.h"

#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include <new>

namespace tessaly::runtime {

namespace {

enum mark : u32 { CLEARED = 0, SEEN = 1, TAKING_OVER = 2 };

constinit std::atomic<u32> always_seen{SEEN};

}  // namespace

constinit u32 forks_seen = 0;
constinit bool fork_unreported = false;
constinit std::atomic<u32>* fork_mark = &always_seen;

namespace {

void become_new_client() noexcept
{
    process_lock.start_afresh();
    trace_mutex_start_afresh();
    watch_trace_switch();
    forget_deliverers();
    forget_sleeping_threads();
    if (node_host* host = host_in_use())
        host->leave_to_parent();
    ++forks_seen;
    fork_unreported = true;
}

void before_fork() noexcept
{
    process_lock.take();
    trace_mutex_before_fork();
}

void after_fork_in_parent() noexcept
{
    trace_mutex_after_fork();
    process_lock.drop();
}

void after_fork_in_child() noexcept
{
    become_new_client();
    fork_mark->exchange(SEEN);
    process_lock.drop();
}

// Without the page, only fork() is noticed.
void make_mark() noexcept
{
    const auto bytes = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* page = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED)
        return;
    if (madvise(page, bytes, MADV_WIPEONFORK) != 0) {
        munmap(page, bytes);
        return;
    }
    fork_mark = new (page) std::atomic<u32>{SEEN};
}

[[gnu::constructor]] void watch_forks() noexcept
{
    make_mark();
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

}  // namespace

// The child may have several threads by now.
void take_over_after_unseen_fork() noexcept
{
    u32 found = CLEARED;
    if (fork_mark->compare_exchange_strong(found, TAKING_OVER)) {
        become_new_client();
        fork_mark->exchange(SEEN);
    }
    while (fork_mark->load() != SEEN)
        sched_yield();
}

void report_unreported_fork() noexcept
{
    fork_unreported = false;
    drop_all_events();
    forget_host();
    report_fork_to_path_users();
}

}  // namespace tessaly::runtime
