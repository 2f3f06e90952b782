// For the runtime's globals: the runtime thread and exit handlers may use them until the process is gone, so nothing runs
// their destructors.
#pragma once

namespace tessaly::runtime {

template <typename T>
union never_destroyed {
    T value;

    constexpr never_destroyed() : value() {}
    constexpr ~never_destroyed() {}

    T* operator->() noexcept { return &value; }
    T& operator*() noexcept { return value; }
};

}  // namespace tessaly::runtime
