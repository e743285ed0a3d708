#!/usr/bin/env python3
"""Writes the manager's source once for each bug that is planted in it, and prints their names:

    planted.py SOURCE DESTINATION FOLDER

DESTINATION is the header that says which service plays a URI. The written sources contain it, so that bugs can be
planted in both.

Each is a slip that somebody could make there. The simulation has to find every one; if it does not, it looks in the
wrong places."""
import pathlib
import sys

PLANTED = [
    # intake
    ("stop-of-type-5", " && request.terminal.type != 5", ""),
    (
        "stop-not-to-tv",
        "            pTvStop->push_back(request);\n            pTV->push_back(request);",
        "            pTV->push_back(request);",
    ),
    ("cache-is-a-recording", ' && !contains(".cache")', ""),
    ("recording-by-either-half", 'contains("/Video USB REC/")', 'contains("/Video USB REC")'),
    (
        "recording-stops-tv",
        "                request.uri = stopUri;\n                pStop->push_back(request);\n            } else {",
        "                request.uri = stopUri;\n                pStop->push_back(request);\n"
        "                pTvStop->push_back(request);\n            } else {",
    ),
    (
        "start-without-its-uri",
        "            pMM->push_back(request);\n            request.uri = stopUri;\n            pStop",
        "            request.uri = stopUri;\n            pMM->push_back(request);\n            pStop",
    ),
    ("scheme-forgotten", "scheme == Scheme::YouTubeV4 ||", ""),
    (
        "live-stops-once",
        "if (sameTerminal(running.terminal, request.terminal)) pStop->push_back(request);",
        "if (sameTerminal(running.terminal, request.terminal)) {\n"
        "                    pStop->push_back(request);\n                    break;\n                }",
    ),
    ("id-not-in-every-list", "{pStop, pTvStop, pMM, pTV})\n", "{pStop, pMM, pTV})\n"),
    ("clients-id-takes-a-number", "        reqId = first;\n", "        reqId = first;\n        ++reqIdSeq;\n"),
    ("number-never-0", "reqIdSeq = sequence + 1;", "reqIdSeq = sequence == UINT32_MAX ? 1 : sequence + 1;"),
    ("stops-not-forgotten", "        forgetTerminals(*runningMmReqs, pStop);\n", ""),
    ("stops-forgotten-with-starts-only", "if (!pStop->empty() || !pMM->empty()) {", "if (!pMM->empty()) {"),
    ("terminals-by-type", "a.type == b.type && a.id == b.id", "a.type == b.type"),
    (
        "one-service-awaited",
        "services(!pMM->empty(), !pTV->empty())",
        "services(!pMM->empty(), pMM->empty() && !pTV->empty())",
    ),
    (
        "queued-in-front",
        "reqQueue.push_back(bundle);",
        "reqQueue.insert(reqQueue.empty() ? reqQueue.end() : " "reqQueue.begin() + 1, bundle);",
    ),
    # worker
    (
        "tv-before-mm",
        "    sendThrough(&ResManager::ReqMM, *forMm);\n    sendThrough(&ResManager::ReqTV, *forTv);",
        "    sendThrough(&ResManager::ReqTV, *forTv);\n    sendThrough(&ResManager::ReqMM, *forMm);",
    ),
    ("tv-stops-to-mm", "SendingStop ? bundle->pStop : bundle->pMM", "SendingStop ? bundle->pTvStop : bundle->pMM"),
    (
        "ended-bundle-not-sent",
        "sendThrough(&ResManager::ReqTV",
        "if (!reqQueue.empty() && reqQueue.front() == bundle) sendThrough(&ResManager::ReqTV",
    ),
    ("sent-with-the-mutex", "    lock.unlock();\n    send(", "    send("),
    (
        "stamped-after-sending",
        "    sendThrough(&ResManager::ReqTV, *forTv);",
        "    sendThrough(&ResManager::ReqTV, *forTv);\n"
        "    if (!bundle->resOps.empty()) bundle->resOps.front().startTime = resClock();",
    ),
    ("last-step-stamped", "bundle->resOps.front().startTime", "bundle->resOps.back().startTime"),
    (
        "checked-at-every-wake",
        "if (resWait(resCond, lock) == std::cv_status::timeout) return false;",
        "if (resWait(resCond, lock) == std::cv_status::timeout || onSleep()) return false;",
    ),
    (
        "sends-instead-of-checking",
        "== std::cv_status::timeout) return false;",
        "== std::cv_status::timeout) return !onSleep();",
    ),
    (
        "records-not-converted",
        "    convertTvtoMm(requests, converted);\n",
        "    convertTvtoMm({requests.front()}, converted);\n",
    ),
    # supervision
    ("limit-not-strict", "answerLimit >= resClock()", "answerLimit > resClock()"),
    (
        "limit-a-nanosecond-late",
        "front.startTime + answerLimit",
        "front.startTime + answerLimit + std::chrono::nanoseconds(1)",
    ),
    (
        "sending-step-dropped",
        "if (front.op != WaitingStop && front.op != WaitingStart) return;",
        "if (front.op == SendingStop) return;",
    ),
    ("last-bundle-dropped", "reqQueue.pop_front(); // even if", "reqQueue.pop_back(); // even if"),
    ("record-of-any-id", " && request.terminal.id == 0", ""),
    ("record-of-a-stop-inside", "!contains(request.uri, stopUri)", "request.uri != stopUri"),
    ("record-of-the-first", "failed->uri", "bundle->pTV->front().uri"),
    ("record-with-code-and-kind-swapped", 'record.logCode = "004001"', 'record.logCode = "00400109"'),
    ("dropping-told-quietly", 'vdlDebugWarning, "Found reqid', 'vdlDebugProgress, "Found reqid'),
    # answers
    (
        "empty-answer-lost",
        'tvServiceInfo empty return \\n");\n        return notForUs();',
        'tvServiceInfo empty return \\n");\n        return 0;',
    ),
    (
        "other-answer-lost",
        "        lock.unlock();\n        return notForUs();\n    }\n    std::vector",
        "        return 0;\n    }\n    std::vector",
    ),
    (
        "id-of-the-last-record",
        "const std::string& reqId = infos.front().reqId;",
        "const std::string& reqId = infos.back().reqId;",
    ),
    (
        "id-up-to-a-nul",
        "reqId != *reqQueue.front()->pReqId",
        "reqId.c_str() != std::string(reqQueue.front()->pReqId->c_str())",
    ),
    (
        "nobodys-answer-taken",
        "if (from != ResponseMM && from != ResponseTV && from != ResponseBOTH)",
        "if (from == ResponseNO)",
    ),
    (
        "told-with-the-mutex",
        "    lock.unlock();\n    if (result == Finished) passOn(outgoing);",
        "    if (result == Finished) passOn(outgoing);",
    ),
    ("last-answer-only-told", "if (result == Finished) passOn(outgoing);", "if (result == Finished) passOn(infos);"),
    ("only-last-answer-kept", "infos.swap(*bundle->pInfo);", ""),
    ("answers-in-reverse", "insert(bundle->pInfo->end(),", "insert(bundle->pInfo->begin(),"),
    ("answers-cleared-as-bits", "front.response - from", "front.response & ~static_cast<unsigned>(from)"),
    ("answers-added", "front.response - from", "front.response + from"),
    (
        "one-stop-answer-enough",
        "        if (!allThere()) return StillWaiting;\n        bundle->resOps.pop_front();",
        "        allThere();\n        bundle->resOps.pop_front();",
    ),
    ("failed-stop-refused", "if (checkStopResult(ids, transport, infos) != 0) {", "if (infos.front().result != 0) {"),
    (
        "marked-by-itself",
        "        reqQueue.pop_front();\n        verifyResult(infos);",
        "        verifyResult(infos);\n        reqQueue.pop_front();",
    ),
    (
        "successes-marked-only",
        "info.result = newerRequestQueued;",
        "if (info.result == 0) info.result = newerRequestQueued;",
    ),
    (
        "marked-by-next-bundle-only",
        '        markNewer(bundle->pTV, "livetv");',
        '        markNewer(bundle->pTV, "livetv");\n        break;',
    ),
]


INCLUSION = "#include <tvservice-adapter/destination.h>\n"


def text_of(source, destination):
    """The source with the header in it, whose functions are renamed: the rest of the program has the right ones."""
    text = source.read_text(encoding="utf-8")
    if text.count(INCLUSION) != 1:
        sys.exit(f"planted.py: {source} does not contain this line once: {INCLUSION}")
    header = destination.read_text(encoding="utf-8").replace("#pragma once\n", "")
    return (
        text.replace(INCLUSION, header)
        .replace("destination::", "planted_destination::")
        .replace("namespace tvservice::destination ", "namespace tvservice::planted_destination ")
    )


def main():
    source, destination, folder = (pathlib.Path(argument) for argument in sys.argv[1:])
    text = text_of(source, destination)
    for name, old, new in PLANTED:
        if text.count(old) != 1:
            sys.exit(f"planted.py: {name}: its text is {text.count(old)} times in {source}, not once:\n{old}")
        variant = folder / name / source.name
        variant.parent.mkdir(parents=True, exist_ok=True)
        changed = text.replace(old, new)
        if not variant.exists() or variant.read_text(encoding="utf-8") != changed:
            variant.write_text(changed, encoding="utf-8")
        print(name)


if __name__ == "__main__":
    main()
