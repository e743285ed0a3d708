// Running a framework process on the host: what frame-host and the reference services are made of.
#pragma once

#include <host/message-queue.h>

#include <string>

namespace host {

// Loads the library at path and takes the members of its frameCreateApplicationArray: sets up all of them in order,
// then starts all of them in order, on the framework's thread. Returns 0 or the first negative result, logged with the
// library and the member, after what had come up is undone. A library that cannot be loaded or has no entry: -2.
int loadApplication(const std::string& path);

// The process's message queue.
MessageQueue& messageQueue();

// Gives the process its debug shell (see appovshell/server.h), for a program that serves only with one. Call it on the
// framework's thread. Throws std::runtime_error, which names the file that the process cannot have, the reason and what
// to do about it; ConfigurationError when the configuration is wrong.
void startShell();

// Runs the framework's thread until SIGTERM or SIGINT (or stopProcess), then stops all members in reverse order and the
// queue. What the run log holds is stored as the process ends, unless the disk takes too long. Call once, from main,
// before any other thread is started: it blocks the two signals first, and has the process ignore SIGHUP (there is
// nothing to read or open anew), SIGPIPE (nobody reads the log any more) and SIGXFSZ (a file may not grow: writing to
// it fails then). All other signals keep their defaults. onReady runs on the calling thread, which is the framework's
// by then; the queue receives from its return on, or from the time when the first array with a marshalling member has
// started. Its non-zero result ends the run at once with that value. Returns 0, or 1 (logged) when the queue cannot be
// made.
int runProcess(int (*onReady)(void* context), void* context);
// Ends runProcess; from any thread.
void stopProcess();

} // namespace host
