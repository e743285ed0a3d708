#include "interruption.h"

#include "options.h"

#include <atomic>
#include <csignal>
#include <unistd.h>
#include <utility>

namespace tvctl {
namespace {

std::atomic<const std::string*> current{nullptr}; // what the signal handler writes

// Needs no cleanup: the line editor resets the terminal before it passes the signal on.
void end(int) {
    if (const std::string* note = current; note != nullptr)
        if (write(STDERR_FILENO, note->data(), note->size()) < 0) _exit(exitInterrupted);
    _exit(exitInterrupted);
}

} // namespace

void endWhenInterrupted() { std::signal(SIGINT, end); }

WhenInterrupted::WhenInterrupted(std::string note) : note_(std::move(note)) { current = &note_; }
WhenInterrupted::~WhenInterrupted() { current = nullptr; }

} // namespace tvctl
