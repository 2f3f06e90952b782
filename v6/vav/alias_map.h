// The LU alias map and the TP-name options: files read at every start of the library, applied when a TP starts.
#pragma once

#include "common/types.h"
#include "verbs/block.h"

namespace tessaly {

inline constexpr u32 ALIAS_MAP_ENTRIES = 256;

// Both aliases ASCII, padded with blanks. `from` may end in '*'; `to` may hold one, for the rest of the alias, or bar
// it.
struct alias_map_entry {
    char from[LU_ALIAS_BYTES];
    char to[LU_ALIAS_BYTES];
};
static_assert(sizeof(alias_map_entry) == 16);

extern alias_map_entry vav_alias_map[ALIAS_MAP_ENTRIES];  // in file order
extern i32 vav_alias_count;
extern void* vav_ipv4_addr;  // address record whose second word goes into TP names; null: no
extern u16 vav_hostname;     // 1: the machine's name goes into TP names

// Where the files are.
extern const char* alias_map_directory;

// Reads the files. A missing one means an empty map, or no decoration.
void vav_init_lu_alias_map() noexcept;

// Replaces an alias of 8 bytes by what the map's first matching entry says. Result: false when it is barred.
bool map_alias(u8* alias) noexcept;

}  // namespace tessaly
