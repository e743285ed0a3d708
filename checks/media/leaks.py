"""Objects of GStreamer that a service still has at rest, from the leak tracer's log."""
import re
import signal
import time

ENVIRONMENT = {
    "GST_TRACERS": "leaks",
    "GST_DEBUG": "GST_TRACER:7",
    "GST_DEBUG_NO_COLOR": "1",
    "GST_LEAKS_TRACER_SIG": "1",  # SIGUSR1 lists the objects
}
# GStreamer's registry keeps what it has loaded of the finders of types, and their capabilities.
REGISTRY = ("GstTypeFindFactory", "GstCaps")
LIMIT = 20  # seconds
PAUSE = 1
OBJECT = re.compile(r"object-alive, type-name=\(string\)([^,]+), .*description=\(string\)(.*), ref-count")


def living(receiver, name):
    """Returns the objects that a service has, as (type, description)."""
    log = receiver.logs / f"{name}.log"
    before = log.stat().st_size
    receiver.processes[name].send_signal(signal.SIGUSR1)
    deadline = time.monotonic() + LIMIT
    size = before
    while True:  # until a second passes without a new line
        time.sleep(PAUSE)
        now = log.stat().st_size
        if now > before and now == size:
            break
        size = now
        if time.monotonic() > deadline:
            raise RuntimeError(f"{name} lists no living objects: is the leak tracer installed?")
    with open(log, encoding="utf-8", errors="replace") as file:
        file.seek(before)
        return [match.groups() for match in map(OBJECT.search, file) if match]
