// Values of the header fields that mark a file as a run log of this layout.
#pragma once

namespace lrt {

inline constexpr int applicationId = 0x52554E4C;
inline constexpr int layoutVersion = 1;

} // namespace lrt
