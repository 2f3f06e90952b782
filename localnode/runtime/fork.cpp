// Notices forks. The forking thread holds the runtime's locks meanwhile, so that the child finds everything in order, and gives
// them back on both sides.
#include "localnode/runtime/fork.h"

#include "localnode/runtime/deliverers.h"
#include "localnode/runtime/events.h"
#include "localnode/runtime/host.h"
#include "localnode/runtime/lock.h"
#include "localnode/runtime/paths.h"
#include "localnode/runtime/trace_file.h"

#include <pthread.h>

namespace tessaly::runtime {

constinit bool fork_unreported = false;

namespace {

constinit u32 forks = 0;

void before_fork() noexcept
{
    process_lock.take();
    trace_mutex_before_fork();
    process_lock.before_fork();
}

void after_fork_in_parent() noexcept
{
    process_lock.after_fork_in_parent();
    trace_mutex_after_fork();
    process_lock.drop();
}

void after_fork_in_child() noexcept
{
    process_lock.after_fork_in_child();
    trace_mutex_after_fork();
    forget_deliverers();
    forget_sleeping_threads();
    ++forks;
    fork_unreported = true;
    process_lock.drop();
}

[[gnu::constructor]] void watch_forks() noexcept
{
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

}  // namespace

u32 forks_seen() noexcept
{
    return forks;
}

void report_unreported_fork() noexcept
{
    fork_unreported = false;
    drop_all_events();
    forget_host();
    report_fork_to_path_users();
}

}  // namespace tessaly::runtime
