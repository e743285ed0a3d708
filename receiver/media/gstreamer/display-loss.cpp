#include "display-loss.h"

#include <tvservice-adapter/service/log.h>

#include <X11/Xlib.h> // at the end: its macros are names of others
#include <atomic>
#include <unistd.h>

namespace media {
namespace {

std::atomic<bool> isLost = false;

// Called by Xlib on a thread of a pipeline. If it returned, Xlib would call exit, which would wait for this very
// thread; so it waits for the process's end.
int keepThread(Display*) {
    if (!isLost.exchange(true))
        SERVICE_LOG(vdlDebugWarning, "the display is lost: pictures are not seen until the service is restarted\n");
    for (;;) pause();
}

// Of a window that somebody closed by force, for example. Xlib would call exit here, too.
int goOn(Display*, XErrorEvent*) { return 0; }

} // namespace

void surviveDisplayLoss() {
    XSetIOErrorHandler(keepThread);
    XSetErrorHandler(goOn);
}

bool isDisplayLost() { return isLost; }

} // namespace media
