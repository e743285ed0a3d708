// Runs a framework process on the host: the base of frame-host and the reference services.
#pragma once

#include <host/message-queue.h>

#include <string>

namespace host {

// Loads the library at path, sets up all members of its frameCreateApplicationArray in order and then starts all of
// them in order, on the framework's thread. Returns 0, or the first negative result, logged with the library and the
// member, after undoing the start-up of the members; -2 for a library that cannot be loaded or has no such function.
int loadApplication(const std::string& path);

// The process's message queue.
MessageQueue& messageQueue();

// Starts the process's debug shell (see appovshell/server.h), for a program that must not run without one. Call it on
// the framework's thread. Throws std::runtime_error with the file that cannot be used, the reason and what to do about
// it; ConfigurationError when the configuration is invalid.
void startShell();

// Runs the framework's thread until SIGTERM, SIGINT or stopProcess; then stops all members in reverse order, and the
// queue. Queued run log records are stored when the process exits, unless the disk takes too long. Call it once, from
// main, before starting any other thread: it first blocks the two signals. It makes the process ignore SIGHUP (there is
// nothing to reload or reopen), SIGPIPE (the reader of the log has gone) and SIGXFSZ (a file has reached its size
// limit; writing to it then fails). All other signals keep their defaults. onReady runs on the calling thread, which is
// the framework's by then. The queue starts receiving when onReady returns, or earlier, when the first array with a
// marshalling member has started. A non-zero result of onReady ends the run at once with that value. Returns 0, or 1
// (logged) when the queue cannot be created.
int runProcess(int (*onReady)(void* context), void* context);
// Ends runProcess; from any thread.
void stopProcess();

} // namespace host
