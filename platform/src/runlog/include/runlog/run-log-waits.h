// The end of those who wait for the run log.
#pragma once

namespace lrt {

// The process is asked to end: who waits for the run log, or would from now on, gets what there is at once. From any
// thread, also before the agent's first use.
void endRunLogWaits();

} // namespace lrt
