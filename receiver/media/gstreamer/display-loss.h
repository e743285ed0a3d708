// The loss of the X display, which the library of the elements that draw there makes the end of the process.
#pragma once

namespace media {

// From now on, the process survives: before a first element uses the display. Logs once that a display was lost.
void surviveDisplayLoss();

// Whether a display was lost. A thread that finds that out does not return from there any more; so whatever draws,
// also the state of its pipeline, may be locked for ever. From any thread.
bool isDisplayLost();

} // namespace media
