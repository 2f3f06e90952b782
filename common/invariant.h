// Reports broken internal invariants. Never for bad input: that is a return code.
#pragma once

#include "common/types.h"
#include "runtime/node_runtime.h"

namespace tessaly {

// Reports to the runtime when a condition that must hold does not. The report may return, so callers go on only as far as it
// is safe with the condition false. module: the fixed name of the source module.
inline bool invariant(bool condition, const char* module, const char* text, u32 line = __builtin_LINE()) noexcept
{
    if (!condition) [[unlikely]]
        v0_assert(module, line, text);
    return condition;
}

}  // namespace tessaly
