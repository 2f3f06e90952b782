// Verb versions: what a caller built to a newer level of the interface gets.
#pragma once

#include "common/types.h"

#include <tessaly/layout.h>

namespace tessaly {

// Sets the block's format to the one that the version uses for its verb, and the capabilities that new paths announce.
// Versions 1 and 2 exist; any other changes nothing.
void vav_set_version(u32 version, void* vcb) noexcept;

}  // namespace tessaly
