// What became of a verb, and the ways to refuse one.
#pragma once

#include "localnode/engine/node.h"

namespace tessaly::node {

enum class verdict : u8 {
    answer,  // the block holds the results; the answer is still to be sent
    waits,   // kept until something happens
    answered,
};

inline verdict refuse(request& verb, return_codes codes) noexcept
{
    set_codes(verb.block, codes.primary, codes.secondary);
    return verdict::answer;
}

inline verdict refuse(request& verb, u16 primary, u32 secondary) noexcept
{
    return refuse(verb, return_codes{primary, secondary});
}

// For every verb that the engine does not do.
inline verdict not_supported(request& verb) noexcept
{
    return refuse(verb, FUNCTION_NOT_SUPPORTED, SEC_NONE);
}

}  // namespace tessaly::node
