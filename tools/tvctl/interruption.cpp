#include "interruption.h"

#include "options.h"

#include <atomic>
#include <csignal>
#include <poll.h>
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

std::atomic<bool> hasSignal{false};
void noteSignal(int) { hasSignal = true; }

} // namespace

void endWhenInterrupted() { std::signal(SIGINT, end); }

WhenInterrupted::WhenInterrupted(std::string note) : note_(std::move(note)) { current = &note_; }
WhenInterrupted::~WhenInterrupted() { current = nullptr; }

EndingOnSignals::EndingOnSignals() {
    hasSignal = false;
    interrupt_ = std::signal(SIGINT, noteSignal);
    terminate_ = std::signal(SIGTERM, noteSignal);
}
EndingOnSignals::~EndingOnSignals() {
    std::signal(SIGINT, interrupt_);
    std::signal(SIGTERM, terminate_);
}

// A signal between the check and the wait is noticed after the wait.
bool EndingOnSignals::pause(std::chrono::milliseconds time) const {
    if (!hasSignal) poll(nullptr, 0, static_cast<int>(time.count()));
    return !hasSignal;
}

} // namespace tvctl
