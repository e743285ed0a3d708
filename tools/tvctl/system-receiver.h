// The receiver that systemd runs for the whole machine.
#pragma once

namespace tvctl {

// Makes this process speak to the machine's receiver instead of the user's: sets the folders in the environment and,
// for root, becomes the receiver's user, as its processes accept no other. Call it while the process has one thread.
// Throws std::runtime_error, with what to do, when that receiver does not run or this user may not use it.
void useSystemReceiver();

} // namespace tvctl
