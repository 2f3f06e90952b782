// The flags behind ptrc. A verb reads its flag and nothing else; whoever wants the trace on or off changes the flag: the
// environment when the runtime is loaded, the program itself at any time, or the thread here, which looks for a file.
#include "localnode/runtime/trace_switch.h"

#include "common/types.h"
#include "runtime/node_runtime.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace tessaly::runtime {

namespace {

constexpr u8 API_TRACE_ON = 0x08;  // in byte 1
constinit u8 flags[16] = {};
constinit char* switch_file = nullptr;
constinit bool was_there = false;

bool is_set(const char* value) noexcept
{
    return value != nullptr && *value != '\0';
}

void set_trace(bool on) noexcept
{
    if (on)
        __atomic_fetch_or(&flags[1], API_TRACE_ON, __ATOMIC_RELAXED);
    else
        __atomic_fetch_and(&flags[1], static_cast<u8>(~API_TRACE_ON), __ATOMIC_RELAXED);
}

// Only a change counts, so that what the program itself sets in the flags stays.
void* follow_switch(void*) noexcept
{
    constexpr timespec PAUSE{0, 250'000'000};
    while (true) {
        const bool is_there = access(switch_file, F_OK) == 0;
        if (is_there != was_there)
            set_trace(was_there = is_there);
        nanosleep(&PAUSE, nullptr);
    }
}

[[gnu::constructor]] void read_environment() noexcept
{
    const char* name = std::getenv("TESSALY_API_TRACE_SWITCH");
    if (!is_set(name)) {
        set_trace(is_set(std::getenv("TESSALY_API_TRACE")));
        return;
    }
    switch_file = strdup(name);  // the environment may change
    was_there = access(name, F_OK) == 0;
    set_trace(was_there);
    watch_trace_switch();
}

}  // namespace

void watch_trace_switch() noexcept
{
    if (switch_file == nullptr)
        return;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread;
    if (pthread_create(&thread, nullptr, follow_switch, nullptr) == 0)
        pthread_detach(thread);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace tessaly::runtime

extern "C" {

uint8_t* ptrc = tessaly::runtime::flags;

}
