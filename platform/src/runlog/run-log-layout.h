// Marks a file as a run log of this layout, in the fields that a file's header has for it.
#pragma once

namespace lrt {

inline constexpr int applicationId = 0x52554E4C;
inline constexpr int layoutVersion = 1;

} // namespace lrt
