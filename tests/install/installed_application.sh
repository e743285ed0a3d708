#!/usr/bin/env bash
# Runs one test of the installed files, a function below: installed_application.sh BUILD_FOLDER SOURCE_FOLDER TEST
set -euo pipefail
build=$1 source=$2 test=$3
timeout=30 # seconds; generous, for busy machines

folder=$(mktemp -d)
prefix=$folder/installed
children=()
end() {
    local status=$?
    if ((${#children[@]})) && kill "${children[@]}" 2>/dev/null; then wait "${children[@]}" || true; fi
    if ((status)); then find "$folder" -maxdepth 1 -name '*.log' -exec tail -n 20 {} + >&2; fi
    rm -rf "$folder"
    exit "$status"
}
trap end EXIT

fail() { # WHAT
    echo "$*" >&2
    return 1
}

# Starts a service with its output in NAME.log and waits until it is ready.
start() { # NAME OPTION...
    local name=$1 ready
    mkfifo "$folder/$name.ready"
    "$@" --ready-fd 3 3<>"$folder/$name.ready" >"$folder/$name.log" 2>&1 &
    children+=($!)
    read -r -t "$timeout" ready <>"$folder/$name.ready" && [[ $ready == ready ]]
}

# Waits until NAME has written a line that contains TEXT.
expect() { # NAME TEXT
    timeout "$timeout" grep -q -m1 -F "$2" <(tail -n +1 -F "$folder/$1.log" 2>/dev/null) ||
        fail "$1 did not write: $2"
}

# Lists the files and links in a folder.
files_in() { # FOLDER
    (cd "$1" && find . -type f -o -type l) | sort
}

# Prints what a library records of a kind: its SONAME, or the libraries that it has NEEDED.
dynamic() { # KIND LIBRARY
    LC_ALL=C readelf -dW "$2" | sed -nE "s/^.*\\($1\\).*\\[(.*)\\]$/\\1/p"
}

# Builds applications against the installed files only, and runs them in a receiver of installed programs, with the
# installed configuration and channel list. They send every request and zap.
ServesApplicationsBuiltAgainstIt() {
    local example examples requests
    cmake --install "$build" --prefix "$prefix" >"$folder/install.log"
    "$source/tests/check-search-paths.sh" "$prefix" >"$folder/search-paths.log"
    examples=$(dirname "$(find "$prefix/share" -name channels.toml)")
    for example in every-request zapping; do
        cmake -S "$examples/$example" -B "$folder/$example" -DCMAKE_PREFIX_PATH="$prefix" \
            >"$folder/configure-$example.log"
        cmake --build "$folder/$example" >"$folder/build-$example.log"
    done

    mkdir -m 700 "$folder/run" "$folder/state"
    export RUNTIME_DIRECTORY=$folder/run STATE_DIRECTORY=$folder/state PATH=$prefix/bin:$PATH
    export TVSA_CONFIG=$examples/config.toml
    start tvserviced --channels "$examples/channels.toml"
    start mmserviced
    frame-host --application control --application "$folder/every-request/libevery-request.so" \
        --application "$folder/zapping/libzapping.so" >"$folder/frame-host.log" 2>&1 &
    children+=($!)
    requests=$(grep -c ' adapter\..*(ids, here' "$examples/every-request/every-request.cpp")
    expect frame-host "$requests requests are queued"
    expect frame-host "terminal 0:0: dvb://1.1.1, result 0"
    expect frame-host "terminal 0:0 has"
    expect frame-host "download: 100 %"
    expect frame-host "dvb://1.1.1: result"
    expect frame-host "dvb://1.1.20: result"
    expect frame-host "rec://plain/null: result 0"
    # Newer zaps replaced these requests.
    ! grep -E "^dvb://1\.1\.([2-9]|1[0-9]): " "$folder/frame-host.log" || return 1
    tvctl terminals >"$folder/terminals.log" # a command of the control application
}

HasEachFileInOneComponent() {
    local component
    cmake --install "$build" --prefix "$prefix" >"$folder/install.log"
    for component in runtime tools development documents; do
        cmake --install "$build" --prefix "$folder/$component" --component "$component" >"$folder/$component.log"
        [[ -d $folder/$component ]] || fail "the component $component is empty"
        files_in "$folder/$component" >>"$folder/in-components"
    done
    # A file of two components is in the list twice.
    diff <(files_in "$prefix") <(sort "$folder/in-components") || fail "not each file is in one component"
}

RunsWithTheRuntimeAlone() {
    cmake --install "$build" --prefix "$prefix" --component runtime >"$folder/install.log"
    mkdir -m 700 "$folder/run" "$folder/state"
    export RUNTIME_DIRECTORY=$folder/run STATE_DIRECTORY=$folder/state PATH=$prefix/bin:$PATH TVSA_LOG=info
    start tvserviced
    start mmserviced
    frame-host --application control >"$folder/frame-host.log" 2>&1 &
    children+=($!)
    expect frame-host "tvservice: connected"
    expect frame-host "mmservice: connected"
}

NamesTheVersionInEachLibraryThatApplicationsLink() {
    local version library control soname
    cmake --install "$build" --prefix "$prefix" >"$folder/install.log"
    version=$("$prefix/bin/tvctl" --version)
    version=${version#tvctl } version=${version%.*}
    control=$(find "$prefix" -name libcontrol-application.so)
    for library in libframe-platform.so libapp-tvservice-adapter.so; do
        soname=$(dynamic SONAME "$(find "$prefix" -name "$library")")
        [[ $soname == "$library.$version" ]] || fail "$library has the SONAME '$soname'"
        dynamic NEEDED "$control" | grep -qxF "$soname" || fail "an application does not record $soname"
    done
    soname=$(dynamic SONAME "$control")
    [[ -z $soname ]] || fail "the application, which nothing links, has the SONAME '$soname'"
}

HasDocumentsWhoseLinksWork() {
    cmake --install "$build" --prefix "$prefix" >"$folder/install.log"
    python3 -B "$source/tests/check-links.py" "$prefix/share/doc/tvservice-adapter"
}

"$test"
