"""The goals: what is measured and the bound of each figure. Programs refer to a goal by its number; 0 is growth."""

GOALS = {
    1: (
        "Codec, lists of requests and infos of 1, 5, 100 and 1000, plain to wire to plain",
        "at most 1.25 of the limit, and faster than every peer",
        "A message costs little more than copying it, so callers need not save messages.",
    ),
    2: (
        "Codec, audio info of 8 streams, plain to wire to plain",
        "at most 1.10 of the limit, and faster than every peer",
        "Records with many fields are not slower than simple ones.",
    ),
    3: (
        "Instructions of 1 and of 100 requests through the codec",
        "at most 1.25 of the limit",
        "The same result on a busy machine. A test watches these figures.",
    ),
    4: (
        "Heap allocations per message on the sending thread, after warm-up",
        "none beyond the message's own memory",
        "Sending does not compete for the allocator's locks.",
    ),
    5: (
        "Receiving messages in the other byte order",
        "at most 1.3 of the same byte order",
        "A service on a machine with the other byte order is hardly slower.",
    ),
    6: (
        "Round trip from the proxy to an echoing service and back, on one CPU",
        "at most 1.8 of a raw blocking socket pair, faster than sd-bus and gRPC",
        "An answer arrives as fast as two threads can be woken.",
    ),
    7: (
        "From a play request to its info, with a service that answers at once, on one CPU",
        "at most 1.25 of a round trip and one wake-up",
        "The resource manager costs only one thread switch.",
    ),
    8: (
        "100 play requests in one burst, per request",
        "at most 2.0 of the same work in one thread",
        "Fast zapping does not build up a backlog.",
    ),
    9: (
        "Notifications one way, small records, per second",
        "at least 3 times sd-bus",
        "Many notifications, such as download progress, do not delay answers.",
    ),
    10: (
        "One notification to 1, 8 and 64 clients: cost of each further client",
        "at most 1.1 of one decode",
        "A further client costs only its own copy.",
    ),
    11: (
        "Queueing a list while 1000 bundles are queued",
        "at most 1.2 of the same with 10 queued",
        "Callers do not notice a long queue.",
    ),
    12: ("A log line whose level is off", "at most 2 times a load and compare", "Traces can stay in the code."),
    13: (
        "Stripped library; memory of an idle host process; time from exec to serving",
        "at most 400 kB; 1.3 and 2 of a process that only loads the same libraries",
        "The adapter costs less than its libraries.",
    ),
    14: ("Wake-ups of an idle receiver's host process", "at most 1.2 a second", "A receiver in standby sleeps."),
    15: (
        "Between hosts: round trip through the proxy, and notifications one way, small and of 64 KiB, "
        "on one and on all CPUs",
        "at most 1.25 of a plain TLS stream",
        "A service on another host costs only its encryption.",
    ),
    16: (
        "Media: from a request to its answer with the first picture, of a file and of a channel whose input is not "
        "open; the same for a stop",
        "at most 1.05 of a bare GStreamer pipeline, and 3 ms",
        "The services and the adapter add only their messages.",
    ),
    17: (
        "Media: zap inside a transport stream with a key frame each second",
        "at most 60 ms, the slowest hundredth 120 ms",
        "A zap does not wait for the next key frame.",
    ),
    18: (
        "Media: processor time and memory of a TV service that plays",
        "at most 1.05 and 1.2 of gst-launch-1.0 with the same pipeline",
        "Receiving for several terminals and keeping pictures costs little.",
    ),
    19: (
        "Media: from drawing a picture of a live broadcast until it is on the screen, median and slowest hundredth",
        "at most 500 ms",
        "What is live is seen live.",
    ),
    20: (
        "Media: 20 channels as fast as a key repeats, with Zapper; from the last key until the last channel is shown",
        "at most 2.1 of a single zap",
        "At most one zap that is under way delays the last one.",
    ),
    0: (
        "Growth: cost per record of 10 to 10,000 in a message, 1 to 64 terminals, 1 to 1,000 queued bundles; "
        "memory after",
        "at most 1.15; memory returns to the same level",
        "The cost of a record does not grow with the length of a list.",
    ),
}

# Measured reasons for missed goals.
REMARKS = {
    3: "A message with one request has fixed costs of about 600 instructions: for its memory, for a traversal in each "
    "direction and for four calls into the platform. The limit has none of these. They hardly affect the time (goal "
    "1). A test keeps both figures from growing.",
    7: "The manager has to signal its worker while it holds the lock, both when a bundle is queued and when it is "
    "finished. On one CPU the worker then runs at once, waits for the lock, and runs again. This adds seven thread "
    "switches before the answer. When the manager signals after the release, which its fixed order of effects "
    "forbids, the ratio is 1.6, or 1.3 when the scheduler favours the receiving thread.",
    8: "In a burst the worker catches up with the requesting thread about a dozen times and sleeps. Waking it on the "
    "other CPU takes 5 to 10 microseconds each time. How often this happens depends on the other load of the CPUs. In "
    "different runs the ratio was 1.3 to 2.4 with messages, as in a receiver, and 1.2 to 2.8 without them. The "
    "allocator takes a third of the time: one thread allocates the memory of a bundle's lists, the other frees it.",
    9: "The figure depends on where the scheduler runs the two processes. On one CPU messages accumulate, and the "
    "adapter sends 16 and more times as many as the peer. On two CPUs each message wakes the receiving thread on the "
    "other CPU: 2.5 to 3.3. Sending messages in batches would delay messages that a client may wait for.",
    10: "During the delivery of a message the adapter holds a copy of the list of clients. The copy costs two atomic "
    "operations and 10 ns per client, a quarter of decoding one info. Without the copy the ratio is 1.0, as the "
    "figures without it show.",
    13: "The process uses 2.4 MiB more than one that only loads the libraries. Of these, 1.2 MiB are the pages of the "
    "library, the platform and the host program. 0.9 MiB are pages of the C and C++ libraries that the process "
    "uses, not only loads. 0.3 MiB are heap, stacks and thread data. All but the last are clean file pages.",
    0: "10,000 records take 3 to 4 MB in each of four forms (plain, flat, wire, plain), more than the inner caches "
    "hold. The limit grows for the same reason in the same run. Flat blocks of a megabyte and more are returned to the "
    "system after each message; when they were kept, the ratios were 1.4 and 1.8. When a bundle finishes, the manager "
    "searches all queued bundles for newer requests for its terminals, which takes about 3 ns per bundle.",
}

# Bounds that the gate uses for figures that miss their goal for one of these reasons.
ACCEPTED = {
    "instructions request/1 own/limit": 1.42,
    "processes play-request play/round trip and wake-up": 2.0,
    "processes notifications/free sd-bus/own": 2.3,
    "manager burst/with-messages own/one thread": 2.8,
    "manager burst/manager-alone own/one thread": 2.8,
    "manager fan-out/info own 1 to 8/decode": 1.35,
    "manager fan-out/info own 8 to 64/decode": 1.35,
    "receiver memory own/libraries only": 1.9,
    "codec growth/request/10-10000 own/10000/own/10": 2.3,
    "codec growth/info/10-10000 own/10000/own/10": 2.4,
    "manager growth/bundles 1000 queued/1 queued": 7.0,
}
