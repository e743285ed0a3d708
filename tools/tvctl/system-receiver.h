// The receiver that systemd runs for the whole machine.
#pragma once

namespace tvctl {

// Makes this process speak to the machine's receiver instead of the user's: sets the folders and settings in the
// environment as its units do and, for root, becomes the receiver's user, as its processes accept no other. Call it
// while the process has one thread. Throws std::system_error when this user may not use that receiver, another
// std::runtime_error when it does not run; both say what to do.
void useSystemReceiver();

} // namespace tvctl
