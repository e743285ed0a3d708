#!/usr/bin/env python3
"""Gives tvctl wrong inputs, and expects that each is rejected with the documented exit code and a reason, and that the
receiver shows nothing afterwards. The module tvservice starts the receiver."""

import os
import shlex
import subprocess
import sys

from tvservice.local import LocalReceiver, program

TIMEOUT = 60  # seconds for a command
DARK = ("", "rec://plain/null")  # never used, and stopped
# By exit code: 1 failed, 2 wrong usage, 3 no such process, 7 not shown.
WRONG = {
    1: r"""
keygen /no/such/dir/key
--target tvserviced emit NoSuch
record /no/such/dir/recording --for 1ms
record /dev/null --for 1ms
monitor /no/such/recording
capture-info /no/such/recording
""",
    2: r"""
monitor --where "infos.result ="
monitor --message NoSuch
monitor --kind nothing
monitor --terminal 0
monitor --count 0
record
record /tmp/recording --for 60
record /tmp/recording --last 1x
record /tmp/recording --rotate-size 1K
--target tvserviced record /tmp/recording
play
play 0:0
play 0:-1 dvb://1.1.1
play -1:0 dvb://1.1.1
play 0 dvb://1.1.1
play 0: dvb://1.1.1
play :0 dvb://1.1.1
play a:b dvb://1.1.1
play 0:0:0 dvb://1.1.1
play 0:0x1 dvb://1.1.1
play 0:99999999999 dvb://1.1.1
play 4294967296:0 dvb://1.1.1
play 0.5:0 dvb://1.1.1
play "0:0 " dvb://1.1.1
play " 0:0" dvb://1.1.1
play +0:0 dvb://1.1.1
play 0:0, dvb://1.1.1
play ,0:0 dvb://1.1.1
play 0:0,,1:0 dvb://1.1.1
play "" dvb://1.1.1
play 0:0 ""
play 0:0 dvb://1.1.1 uuid extra
play 0:0 dvb://1.1.1 --no-such
play 0:0 dvb://1.1.1 --timeout 0
play 0:0 dvb://1.1.1 --timeout -1
play 0:0 dvb://1.1.1 --timeout x
play 0:0 dvb://1.1.1 --timeout nan
play 0:0 dvb://1.1.1 --timeout inf
play 0:0 dvb://1.1.1 --timeout 1e99
play 0:0 dvb://1.1.1 --target
stop
stop 0:-1
stop x
stop 0:0 extra
stop 0:0,
stop ""
zap
zap 0:0
zap 0:-1 dvb://1.1.1
zap 0:0 ""
requests x
requests -1
requests 1.5
requests 1 2
requests 99999999999999999999
request
request no-such
request ""
request a b
answers x
answers -1
notifications x
notifications -5
bundles x
bundles -1
terminals x
stats x
stats tables x
runlog x
runlog -1
help x
nonsense
""
audio
audio 0:0
audio 0:-1 1
audio 0:0 x
audio 0:0 99999999999
audio 0:0 1 2 3
mts-audio x
mts-audio
cas-service x
send-key
send-key ""
slist-changed x
request-packages 1
request-packages x y
request-packages 1 ""
source-changed
source-changed ""
try-run x
parental-lock 0:0
parental-lock 0:-1 1
swap-win x
stream-info x
ask-release ""
info x
log x
log service
log service=loud
log =info
log service=info,
watch x
watch --no-such
watch TvNoSuch
watch --count x
watch --count -1
watch --count 0
schema x
schema --json --markdown
config x
keygen
keygen a b
doctor x
doctor --timeout 0
doctor --timeout x
shell x
--timeout 5
--json
--quiet
--target tvserviced fault
--target tvserviced fault delay
--target tvserviced fault delay x
--target tvserviced fault delay -1
--target tvserviced fault delay 99999999999
--target tvserviced fault mute
--target tvserviced fault mute maybe
--target tvserviced fault nosuch on
--target tvserviced fault exit-after -1
--target tvserviced fault clear x
--target tvserviced emit
--target tvserviced emit TvServicePlayInfo x
--target tvserviced emit TvServicePlayInfo '{"nosuch":1}'
--target tvserviced emit TvServicePlayInfo '{"info":{"strParam1":1}}'
--target tvserviced emit TvServicePlayInfo '[]'
--target tvserviced emit TvServicePlayInfo '{"info":{}} x'
--target tvserviced channels x
--target tvserviced terminals x
--target tvserviced faults x
--target tvserviced log x=y
--target mmserviced channels
--target mmserviced play 0:0 file:///etc/passwd
--target tvserviced play 0:0 dvb://1.1.1
play 0:0,0:0 dvb://1.1.1
requests 0
answers 0
bundles 0
runlog 0
log
log nosuch=info
audio 0:0 -5
subtitle 0:0 -1
video 0:0 -1
teletext 0:0 -100
mts-audio 99
mts-audio -1
parental-lock 0:0 99
parental-lock 0:0 1 -1
cas-service -1
swap-win -1
stream-info 0
stream-info -1
try-run 0
ask-release -1
slist-changed -1
check-service mmservice --address ""
check-service nosuch
check-service tvservice --terminal 0:-1
--target nosuch doctor
--target nosuch config
--target nosuch schema
play 0:0 dvb://1.1.1 --target ../frame-host
--target "" terminals
--target /tmp terminals
""",
    3: r"""
play 0:0 dvb://1.1.1 --target nobody
""",
    7: r"""
play 0:0 " "
play 0:0 dvb://
play 0:0 dvb://9.9
play 0:0 dvb://1.1.1.1
play 0:0 dvb://1.1.999
play 0:0 "dvb://1.1.1 "
play 0:0 DVB//1.1.1
play 0:0 1.1.1
play 0:0 nonsense
play 0:0 foo://bar
play 0:0 file:///no/such/file
play 0:0 file://
play 0:0 file:
play 0:0 file:///
play 0:0 file:///tmp
play 0:0 file:relative
play 0:0 null
play 0:0 http://
play 0:0 http:
play 0:0 http:///x
play 0:0 "http://a b/"
play 0:0 rtp://
play 0:0 rec://
play 0:0 hdmi://
""",
}


def tvctl(receiver, arguments):
    return subprocess.run(
        [program("tvctl"), *arguments],
        env={**os.environ, "RUNTIME_DIRECTORY": receiver.folder, "TVSA_CONFIG": os.devnull},
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        timeout=TIMEOUT,
        check=False,
    )


def try_all(receiver):
    """Returns how many inputs were tried, and a line for each that was not rejected as it should be."""
    tried, problems = 0, []
    for code, lines in WRONG.items():
        for line in lines.split("\n"):
            if not line:
                continue
            tried += 1
            result = tvctl(receiver, shlex.split(line))
            if result.returncode != code or not result.stderr.strip():
                problems.append(f"{line}: exit code {result.returncode}, not {code}: {result.stderr or result.stdout}")
    problems += [
        f"afterwards, {each.terminal} shows {each.uri}" for each in receiver.terminals() if each.uri not in DARK
    ]
    return tried, problems


def main():
    with LocalReceiver() as receiver:
        tried, problems = try_all(receiver)
    print(f"{tried} wrong inputs, {len(problems)} not rejected as they should be", *problems, sep="\n")
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
