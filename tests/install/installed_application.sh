#!/usr/bin/env bash
# Builds applications against the installed files only, and runs them in a receiver of installed programs, where they
# send every request and zap: installed_application.sh BUILD_FOLDER SOURCE_FOLDER
set -euo pipefail
build=$1 source=$2
timeout=30 # seconds; generous, for busy machines

folder=$(mktemp -d)
children=()
end() {
    local status=$?
    if ((${#children[@]})) && kill "${children[@]}" 2>/dev/null; then wait "${children[@]}" || true; fi
    ((status)) && tail -n 20 "$folder"/*.log >&2
    rm -rf "$folder"
    exit "$status"
}
trap end EXIT

cmake --install "$build" --prefix "$folder/installed" >"$folder/install.log"
"$source/tests/check-search-paths.sh" "$folder/installed" >"$folder/search-paths.log"
for example in every-request zapping; do
    cmake -S "$source/docs/examples/$example" -B "$folder/$example" -DCMAKE_PREFIX_PATH="$folder/installed" \
        >"$folder/configure-$example.log"
    cmake --build "$folder/$example" >"$folder/build-$example.log"
done

mkdir -m 700 "$folder/run" "$folder/state"
export RUNTIME_DIRECTORY=$folder/run STATE_DIRECTORY=$folder/state PATH=$folder/installed/bin:$PATH

# Starts a service with its output in NAME.log and waits until it is ready.
start() { # NAME
    local name=$1 ready
    mkfifo "$folder/$name.ready"
    "$name" --ready-fd 3 3<>"$folder/$name.ready" >"$folder/$name.log" 2>&1 &
    children+=($!)
    read -r -t "$timeout" ready <>"$folder/$name.ready" && [[ $ready == ready ]]
}
# Waits until NAME has written a line that contains TEXT.
expect() { # NAME TEXT
    timeout "$timeout" grep -q -m1 -F "$2" <(tail -n +1 -F "$folder/$1.log" 2>/dev/null) || {
        echo "$1 did not write: $2" >&2
        return 1
    }
}

modules=$(dirname "$(find "$folder/installed" -name libapp-tvservice-adapter.so)")
start tvserviced
start mmserviced
frame-host "$modules/libapp-tvservice-adapter.so" "$folder/every-request/libevery-request.so" \
    "$folder/zapping/libzapping.so" >"$folder/frame-host.log" 2>&1 &
children+=($!)
requests=$(grep -c ' adapter\..*(ids, here' "$source/docs/examples/every-request/every-request.cpp")
expect frame-host "$requests requests are queued"
expect frame-host "terminal 0:0: dvb://1.1.1, result 0"
expect frame-host "terminal 0:0 has"
expect frame-host "download: 100 %"
expect frame-host "dvb://1.1.1: result"
expect frame-host "dvb://1.1.20: result"
expect frame-host "rec://plain/null: result 0"
! grep -E "^dvb://1\.1\.([2-9]|1[0-9]): " "$folder/frame-host.log" # requests that newer zaps replaced
