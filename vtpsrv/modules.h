// The module names under which the TP server reports broken invariants.
#pragma once

namespace tessaly {

inline constexpr char VTPSMAIN[] = "vtpsmain";
inline constexpr char VTPSVERB[] = "vtpsverb";
inline constexpr char VTPSCBCK[] = "vtpscbck";

}  // namespace tessaly
