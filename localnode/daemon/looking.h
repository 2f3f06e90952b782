// When to look for news for a moment before waiting in the kernel.
#pragma once

#include "common/types.h"

#include <sched.h>

#include <algorithm>

namespace tessaly::daemon {

inline int usable_processors() noexcept
{
    cpu_set_t usable;
    return sched_getaffinity(0, sizeof usable, &usable) == 0 ? CPU_COUNT(&usable) : 1;
}

// A client that runs on another processor sends its next verb sooner than the kernel lets the node sleep and wakes it. So the
// node looks for about as long as that takes; when that was in vain it leaves out the next looks, ever more of them.
class looking {
public:
    // looks_once() tells whether there is news.
    template <typename Look>
    bool finds(Look looks_once)
    {
        constexpr u32 LOOKS = 100;
        constexpr u32 MOST_LEFT_OUT = 1023;
        if (!several_processors_ || left_out_ < leave_out_) {
            ++left_out_;
            return false;
        }
        left_out_ = 0;
        for (u32 i = 0; i < LOOKS; ++i)
            if (looks_once()) {
                leave_out_ /= 2;  // not 0: now and then even a look on one processor finds something
                return true;
            }
        leave_out_ = std::min(2 * leave_out_ + 1, MOST_LEFT_OUT);
        return false;
    }

private:
    const bool several_processors_ = usable_processors() > 1;
    u32 leave_out_ = 0;
    u32 left_out_ = 0;
};

}  // namespace tessaly::daemon
