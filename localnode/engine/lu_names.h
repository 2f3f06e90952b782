// The node's LUs and what they are called. Without set-up every alias is one, NETWORK.alias in full. TP_STARTED and ALLOCATE
// name them.
#pragma once

#include "common/types.h"
#include "localnode/engine/engine.h"
#include "verbs/block.h"

#include <array>
#include <optional>
#include <vector>

namespace tessaly::node {

using lu_alias = std::array<u8, LU_ALIAS_BYTES>;      // ASCII, padded with blanks
using fq_lu_name = std::array<u8, FQ_LU_NAME_BYTES>;  // EBCDIC, padded with blanks
using short_name = std::array<u8, 8>;                 // EBCDIC, padded with blanks: the network's part, or the LU's

inline constexpr lu_alias ANY_LU = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
inline constexpr lu_alias DEFAULT_LU = {'L', 'O', 'C', 'A', 'L', ' ', ' ', ' '};  // where no LUs are set up

class lu_directory {
public:
    lu_directory() = default;
    explicit lu_directory(const configuration& with);

    // The LU that eight bytes of a block name; blanks or zeros: the default. None for bytes that name no LU.
    std::optional<lu_alias> local(const u8* alias) const noexcept;

    // The same for a partner, which may also be called by a partner alias.
    std::optional<lu_alias> partner(const u8* alias) const noexcept;

    // The LU that a full name means. None for another network's LU, and for what is no name.
    std::optional<lu_alias> of_full_name(const u8* name) const noexcept;

    fq_lu_name full_name(const lu_alias& alias) const noexcept;
    short_name network_name(const lu_alias& alias) const noexcept;
    short_name lu_name(const lu_alias& alias) const noexcept;

    // In plain text, those that were set up.
    std::vector<lu_definition> list() const;

private:
    struct entry {
        lu_alias alias;
        fq_lu_name name;
    };

    static std::vector<entry> entries_of(const std::vector<lu_definition>& definitions);

    fq_lu_name prefix_{};  // of the full names that follow from an alias: the network and a period
    u32 prefix_bytes_ = 0;
    std::vector<entry> locals_;
    std::vector<entry> partners_;
};

// Blanks behind it are cut off.
std::string text_of(std::span<const u8> ebcdic);

}  // namespace tessaly::node
