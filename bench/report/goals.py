"""The goals: what is measured and what a figure has to keep to. Programs name a goal by its number; 0 is growth."""

GOALS = {
    1: ("Codec, lists of requests and infos of 1, 5, 100 and 1000, plain to wire to plain",
        "at most 1.25 of the limit, and ahead of every peer",
        "A message costs little more than its copy; nobody has to save on messages."),
    2: ("Codec, audio info of 8 streams, the same",
        "at most 1.10 of the limit, and ahead of every peer",
        "The records with the most fields are no slower than the simple ones."),
    3: ("Instructions of 1 and of 100 requests through the codec",
        "at most 1.25 of the limit",
        "The same on a busy machine; a test watches them."),
    4: ("Heap allocations on the sending thread per message, once warm",
        "none beyond the message's own memory",
        "Sending does not meet the allocator's locks."),
    5: ("Receiving the other byte order",
        "at most 1.3 of the own order",
        "A service on a machine of the other order is no second-class one."),
    6: ("Round trip through the proxy, service echo and back, on one CPU",
        "at most 1.8 of a raw blocking socket pair, ahead of sd-bus and gRPC",
        "An answer is there as fast as two threads can be woken."),
    7: ("Play request to its info, instant service, on one CPU",
        "at most 1.25 of the round trip and one wake-up",
        "The resource manager adds a thread and no more."),
    8: ("100 play requests in one burst, per request",
        "at most 2.0 of the same work in one thread",
        "A zapping user does not queue up work."),
    9: ("Notifications one way, small records, per second",
        "at least 3 times sd-bus",
        "News in bulk, such as download progress, does not hold up answers."),
    10: ("One notification to 1, 8 and 64 clients, each further client",
         "at most 1.1 of one decode",
         "Clients pay for their own copy and for nothing else."),
    11: ("Intake of a list with 1000 bundles queued",
         "at most 1.2 of the same with 10 queued",
         "Callers do not feel a long queue."),
    12: ("A log line whose level is off",
         "at most 2 loads and compares",
         "Traces can stay in the code."),
    13: ("Stripped library; memory of an idle host process; from exec to serving",
         "at most 400 kB; 1.3 and 2 of a process that only loads the same libraries",
         "The adapter costs less than what it is made of."),
    14: ("Wake-ups of an idle receiver's host process",
         "at most 1.2 a second",
         "A receiver in standby sleeps."),
    15: ("Between hosts: round trip through the proxy, notifications of 64 KiB and small ones one way, on one and on all CPUs",
         "at most 1.25 of a bare TLS stream",
         "A service on another host costs what its encryption costs."),
    0: ("Growth: cost per record of 10 to 10,000 in a message, 1 to 64 terminals, 1 to 1,000 queued bundles; memory after",
        "at most 1.15; memory back to the same level",
        "No list is too long."),
}

# Measured reasons for what is not reached, and what a figure does not show by itself.
REMARKS = {
    3: "A message of one request carries the fixed cost of its memory, of a walk each way and of four calls into the "
       "platform, about 600 instructions, that the limit has nothing of; in time they hardly show (goal 1). The test "
       "keeps both figures from growing.",
    7: "The manager has to signal its worker with the lock held, when a bundle is queued as when it is finished. On one "
       "CPU the worker then runs at once, waits for the lock, and runs again: seven changes of threads more in the way "
       "of the answer. With the signals after the release, which is not open to the manager, 1.6 was measured, and 1.3 "
       "when the scheduler favoured the receiving thread.",
    8: "The worker catches up with the asking thread about a dozen times in a burst, sleeps, and is woken on the other "
       "CPU, 5 to 10 microseconds each time; how often depends on what else the CPUs do. With messages on the way, as in "
       "a receiver, the ratio was 1.3 to 2.4 in different runs, without them 1.2 to 2.8. A third of the time is the "
       "allocator's: one thread takes the memory of a bundle's lists, the other gives it back.",
    9: "Depends on where the scheduler puts the two processes. On one CPU messages gather and 16 and more times the "
       "peer's are made; on two, each message wakes the receiving thread on the other CPU: 2.5 to 3.3. To send later and "
       "more at a time would hold messages back that may be awaited.",
    10: "A message holds a reference to each client while it is delivered: the list's copy costs two atomic operations "
        "and 10 ns per client, a quarter of what decoding one info costs. Without it the ratio is 1.0, as the figures "
        "without the list's copy show.",
    13: "Of the 2.4 MiB above a process that only loads the libraries, 1.2 MiB are the pages of the library, the "
        "platform and the host program themselves, 0.9 MiB more pages of the C and C++ libraries that are used and not "
        "only loaded, and 0.3 MiB heap, stacks and thread data. All but the last are clean pages of files.",
    0: "10,000 records are 3 to 4 MB in each of four forms (plain, flat, wire, plain), more than the nearer caches hold, "
       "which the limit's own growth in the same run shows, too. Flat blocks of a megabyte and more go back to the system "
       "after each message; kept, they made the ratios 1.4 and 1.8. A bundle that finishes looks at every bundle behind "
       "it for newer requests of its terminals, about 3 ns each.",
}

# What the gate holds figures to that miss their goal for one of these reasons.
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
