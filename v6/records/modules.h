// The module names under which the verb library reports broken invariants.
#pragma once

namespace tessaly {

inline constexpr char VAV[] = "../../p/v6/vav";
inline constexpr char VAVSUB[] = "../../p/v6/vavsub";
inline constexpr char VAV3264[] = "../../p/v6/vav3264";

}  // namespace tessaly
