// The node's LUs, which need no set-up: every alias is one, TESSALY.alias in full. TP_STARTED and ALLOCATE name them.
#pragma once

#include "common/types.h"
#include "verbs/block.h"

#include <array>
#include <optional>

namespace tessaly::node {

using lu_alias = std::array<u8, LU_ALIAS_BYTES>;      // ASCII, padded with blanks
using fq_lu_name = std::array<u8, FQ_LU_NAME_BYTES>;  // EBCDIC, padded with blanks

inline constexpr lu_alias ANY_LU = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
inline constexpr lu_alias DEFAULT_LU = {'L', 'O', 'C', 'A', 'L', ' ', ' ', ' '};

// The LU that eight bytes of a block name; blanks or zeros: the default. None for bytes that no LU name can have.
std::optional<lu_alias> lu_of_alias(const u8* alias) noexcept;

// The LU that a full name means. None for another network's LU, and for what is no name.
std::optional<lu_alias> lu_of_full_name(const u8* name) noexcept;

fq_lu_name full_name(const lu_alias& alias) noexcept;

// The network's name and the LU's, each EBCDIC and padded with blanks.
std::array<u8, 8> network_name() noexcept;
std::array<u8, 8> lu_name(const lu_alias& alias) noexcept;

}  // namespace tessaly::node
