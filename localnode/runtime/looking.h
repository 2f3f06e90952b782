// Looking before sleeping. A wake-up between two processors that both run costs a fraction of one that the kernel has to make, so
// whoever waits first looks, for about as long as the kernel would take. When that was in vain the next looks are left out, ever
// more of them, and on a single processor all of them.
#pragma once

#include "common/types.h"

#include <sched.h>

#include <algorithm>

namespace tessaly::runtime {

inline int usable_processors() noexcept
{
    cpu_set_t usable;
    return sched_getaffinity(0, sizeof usable, &usable) == 0 ? CPU_COUNT(&usable) : 1;
}

// As it was when the program began.
inline const bool several_processors = usable_processors() > 1;

class looking {
public:
    constexpr explicit looking(u32 looks) noexcept : looks_(looks) {}

    // Calls is_there until it says yes, or until it is time to sleep.
    template <typename Look>
    bool finds(Look is_there) noexcept
    {
        constexpr u32 MOST_LEFT_OUT = 1023;
        if (left_out_ < leave_out_ || !several_processors) {
            ++left_out_;
            return false;
        }
        left_out_ = 0;
        for (u32 i = 0; i < looks_; ++i) {
            if (is_there()) {
                leave_out_ /= 2;  // not 0: now and then even a look on one processor finds something
                return true;
            }
            __builtin_ia32_pause();
        }
        leave_out_ = std::min(2 * leave_out_ + 1, MOST_LEFT_OUT);
        return false;
    }

private:
    u32 looks_;
    u32 leave_out_ = 0;
    u32 left_out_ = 0;
};

}  // namespace tessaly::runtime
