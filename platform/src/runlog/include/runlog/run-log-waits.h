// Ends waiting for the run log.
#pragma once

namespace lrt {

// Called when the process is asked to end: current waits for the run log return at once, and later ones do not wait.
// From any thread, also before the agent's first use.
void endRunLogWaits();

} // namespace lrt
