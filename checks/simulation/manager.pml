/* The resource manager's queue: an intake, the worker and two services, with requests that get lost and answers that are
   missing, late or given more than once. What happens under the manager's lock is one step here; everything else
   interleaves. */

#ifndef BUNDLES
#define BUNDLES 3
#endif
#ifndef ANSWERS
#define ANSWERS 2 /* that a service gives to one request at most */
#endif
#define LIMIT 2 /* ticks until a bundle under way is overdue */

/* The services, as members of a set. */
#define MM 1
#define TV 2
#define BOTH 3

mtype = { SendingStop, WaitingStop, SendingStart, WaitingStart };

/* Bundles are queued in the order of their numbers: those from head to tail are in the queue, head is under way. */
byte head = 0, tail = 0;
mtype op[BUNDLES];
byte stops[BUNDLES], starts[BUNDLES]; /* whom they are sent to */
short response[BUNDLES];              /* of the waiting step */
byte ticks = 0;                       /* since the last sending */

/* What really happened, for the claims. */
byte stopAnswered[BUNDLES];
bool dropped[BUNDLES];

#define waiting(b) (op[b] == WaitingStop || op[b] == WaitingStart)

/* Indexed by a service's number less one, with room for all that is ever sent. */
chan requests[2] = [2 * BUNDLES] of { byte, bool };

active proctype Intake() {
    do
    :: tail < BUNDLES ->
        atomic {
            /* to the TV service; the same where the MM service plays; and to the MM service */
            if
            :: stops[tail] = 0; starts[tail] = TV
            :: stops[tail] = MM; starts[tail] = TV
            :: stops[tail] = BOTH; starts[tail] = MM
            :: stops[tail] = BOTH; starts[tail] = BOTH
            fi;
            op[tail] = (stops[tail] -> SendingStop : SendingStart);
            tail++
        }
    :: else -> break
    od
}

inline sendTo(service, b, starting) {
    if
    :: (starting && (starts[b] & service)) || (!starting && (stops[b] & service)) ->
        if
        :: requests[service - 1]!b,starting
        :: true /* lost */
        fi
    :: else
    fi
}

active proctype Worker() {
    byte b;
    bool starting;
    do
    :: atomic {
            head < tail && !waiting(head) ->
            b = head;
            starting = op[b] == SendingStart;
            if
            :: starting -> op[b] = WaitingStart; response[b] = starts[b]
            :: else -> op[b] = WaitingStop; response[b] = stops[b]
            fi;
            ticks = 0;
            assert(!starting || (stopAnswered[b] & stops[b]) == stops[b]);
            assert(!dropped[b])
        }
        sendTo(MM, b, starting);
        sendTo(TV, b, starting)
    :: atomic { /* a second without a signal */
            head < tail && waiting(head) ->
            if
            :: ticks < LIMIT -> ticks++
            :: else -> dropped[head] = true; head++
            fi
        }
    :: head == BUNDLES -> break
    od
}

/* A service and the thread that receives its answers: an answer that waits in between is one that the service gives
   later. */
proctype Service(byte service) {
    byte b, given;
    bool starting;
end:
    do
    :: requests[service - 1]?b,starting ->
        given = 0;
        do
        :: given < ANSWERS ->
            atomic {
                given++;
                if
                :: starting
                :: else -> stopAnswered[b] = stopAnswered[b] | service
                fi;
                if
                :: head < tail && b == head && waiting(b) ->
                    response[b] = response[b] - service;
                    if
                    :: response[b] != 0
                    :: response[b] == 0 && op[b] == WaitingStop -> op[b] = SendingStart
                    :: response[b] == 0 && op[b] == WaitingStart -> head++
                    fi
                :: else /* of no bundle under way, or before its request: passed on or refused, nothing changes */
                fi
            }
        :: break
        od
    od
}

init {
    atomic {
        run Service(MM);
        run Service(TV)
    }
}

/* Every bundle is answered or dropped. */
ltl progress { <> (head == BUNDLES) }
