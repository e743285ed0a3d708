#!/usr/bin/env bash
# Runs one test of the installed files, a function below: installed_application.sh BUILD_FOLDER SOURCE_FOLDER TEST
set -euo pipefail
export TVSA_MEDIA_ENGINE=simulated # the addresses are made up
build=$1 source=$2 test=$3
skipped=77 # exit code
timeout=30 # seconds; generous, for busy machines

folder=$(mktemp -d)
prefix=$folder/installed
children=() tvserviced_options=()
end() {
    local status=$?
    if ((${#children[@]})) && kill "${children[@]}" 2>/dev/null; then wait "${children[@]}" || true; fi
    if ((status != 0 && status != skipped)); then find "$folder" -maxdepth 1 -name '*.log' -exec tail -n 20 {} + >&2; fi
    rm -rf "$folder"
    exit "$status"
}
trap end EXIT

fail() { # WHAT
    echo "$*" >&2
    return 1
}
skip() { # WHY
    echo "$*"
    exit "$skipped"
}

install_to() { # PREFIX OPTION...
    cmake --install "$build" --prefix "$@" >>"$folder/install.log"
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

# Prints the flags of a compiler that an application takes from its dependencies, with the paths resolved.
compile_flags() { # FLAG...
    local flag
    for flag in "$@"; do
        case $flag in
            -D*_EXPORTS) ;; # CMake's own
            -std=* | -D*) echo "$flag" ;;
            -I*) echo "-I$(realpath -m "${flag#-I}")" ;;
        esac
    done | sort
}

# Starts a receiver of installed programs.
start_receiver() { # OPTION_OF_FRAME_HOST...
    mkdir -m 700 "$folder/run" "$folder/state"
    export RUNTIME_DIRECTORY=$folder/run STATE_DIRECTORY=$folder/state PATH=$prefix/bin:$PATH
    start tvserviced "${tvserviced_options[@]}"
    start mmserviced
    frame-host "$@" >"$folder/frame-host.log" 2>&1 &
    children+=($!)
}

# Builds applications against the installed files only, and runs them in a receiver of installed programs, with the
# installed configuration and channel list. They send every request and zap.
ServesApplicationsBuiltAgainstIt() {
    local example examples requests
    install_to "$prefix"
    "$source/tests/check-search-paths.sh" "$prefix" >"$folder/search-paths.log"
    examples=$(dirname "$(find "$prefix/share" -name channels.toml)")
    for example in every-request zapping; do
        cmake -S "$examples/$example" -B "$folder/$example" -DCMAKE_PREFIX_PATH="$prefix" \
            >"$folder/configure-$example.log"
        cmake --build "$folder/$example" --target "$example" >"$folder/build-$example.log"
    done

    export TVSA_CONFIG=$examples/config.toml
    # Slow enough that all zaps are made before the first one is answered, also on a busy machine.
    tvserviced_options=(--channels "$examples/channels.toml" --fault delay=1000)
    start_receiver --application control --application "$folder/every-request/libevery-request.so" \
        --application "$folder/zapping/libzapping.so"
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

# Builds the services of the examples against the installed files only, one with CMake and one with pkg-config, and
# examines each with tvctl while it runs in place of mmserviced. All headers of the kit can be included.
ServesServicesBuiltAgainstIt() {
    local compiler=${CXX:-c++} examples flags libraries lines
    command -v pkg-config >/dev/null || skip "pkg-config is not installed"
    install_to "$prefix"
    examples=$prefix/share/doc/tvservice-adapter/docs/examples
    PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name tvservice-adapter-service.pc)")
    export PKG_CONFIG_PATH
    read -ra flags <<<"$(pkg-config --cflags tvservice-adapter-service)"
    read -ra libraries <<<"$(pkg-config --libs tvservice-adapter-service)"
    (cd "$prefix/include/tvservice-adapter" && printf '#include <%s>\n' tvservice-adapter/service/*.h) >"$folder/all.cpp"
    "$compiler" -fsyntax-only "${flags[@]}" "$folder/all.cpp"
    cmake -S "$examples/mm-service" -B "$folder/mm-service" -DCMAKE_PREFIX_PATH="$prefix" \
        >"$folder/configure-mm-service.log"
    cmake --build "$folder/mm-service" >"$folder/build-mm-service.log"
    mkdir "$folder/mm-guard"
    "$compiler" "${flags[@]}" "$examples/mm-guard/mm-guard.cpp" -o "$folder/mm-guard/mm-guard" "${libraries[@]}" \
        -Wl,-rpath,"$(pkg-config --variable=libdir tvservice-adapter-service)"

    mkdir -m 700 "$folder/run" "$folder/state"
    export RUNTIME_DIRECTORY=$folder/run STATE_DIRECTORY=$folder/state
    PATH=$prefix/bin:$folder/mm-service:$folder/mm-guard:$PATH
    start mm-service
    tvctl check-service mmservice >"$folder/check.log" || fail "mm-service breaks a rule"
    expect mm-service "terminal 0:0 plays http://media.example/film"
    tvctl --target mm-service health >"$folder/health.log"
    kill "${children[0]}" && wait "${children[0]}"
    children=()
    start mm-guard --refuse refused.example
    tvctl check-service mmservice --quick >"$folder/check.log" || fail "mm-guard breaks a rule"
    ! tvctl check-service mmservice --quick --address http://refused.example/film >"$folder/check.log" ||
        fail "mm-guard refuses nothing"
    expect check "unsupported address"
    expect mm-guard "http://refused.example/film: refused"
    lines=$(wc -l <"$examples/mm-service/mm-service.cpp")
    ((lines <= 40)) || fail "the example needs $lines lines"
}

# Builds the media engine of the examples against the installed files only, and runs both services with it.
LoadsAMediaEngineBuiltAgainstIt() {
    install_to "$prefix"
    cmake -S "$prefix/share/doc/tvservice-adapter/docs/examples/media-engine" -B "$folder/media-engine" \
        -DCMAKE_PREFIX_PATH="$prefix" >"$folder/configure-media-engine.log"
    cmake --build "$folder/media-engine" >"$folder/build-media-engine.log"
    mkdir -m 700 "$folder/run" "$folder/state"
    export RUNTIME_DIRECTORY=$folder/run STATE_DIRECTORY=$folder/state
    export TVSA_MEDIA_ENGINE=$folder/media-engine/libprinting-engine.so
    PATH=$prefix/bin:$PATH
    start mmserviced
    tvctl check-service mmservice --quick >"$folder/check.log" || fail "the MM service with the engine breaks a rule"
    expect mmserviced "opens http://media.example/film"
    start tvserviced
    tvctl check-service tvservice --quick >"$folder/check.log" || fail "the TV service with the engine breaks a rule"
    expect tvserviced "opens dvb://"
}

HasEachFileInOneComponent() {
    local component
    install_to "$prefix"
    for component in runtime gstreamer tools python development testing documents; do
        install_to "$folder/$component" --component "$component"
        [[ -d $folder/$component ]] || fail "the component $component is empty"
        files_in "$folder/$component" >>"$folder/in-components"
    done
    # A file of two components is in the list twice.
    diff <(files_in "$prefix") <(sort "$folder/in-components") || fail "not each file is in one component"
}

# Builds an application with its tests against the installed files only. ctest and the program itself run all tests.
TestsApplicationsBuiltAgainstIt() {
    local example count
    install_to "$prefix"
    example=$(dirname "$(find "$prefix/share" -name zapping_test.cpp)")
    count=$(grep -c '^TEST_F' "$example/zapping_test.cpp")
    cmake -S "$example" -B "$folder/zapping" -DCMAKE_PREFIX_PATH="$prefix" >"$folder/configure.log"
    cmake --build "$folder/zapping" >"$folder/build.log"
    ctest --test-dir "$folder/zapping" --no-tests=error --output-on-failure >"$folder/ctest.log"
    grep -F "100% tests passed, 0 tests failed out of $count" "$folder/ctest.log" >"$folder/found"
    "$folder/zapping/zapping_test" >"$folder/tests.log" 2>"$folder/warnings.log"
    grep -xF "$count tests passed, 0 failed" "$folder/tests.log" >"$folder/found"

}

# The kit itself needs no GoogleTest.
RunsAReceiverInATestBuiltWithPkgConfig() {
    local libraries flags
    command -v pkg-config >/dev/null || skip "pkg-config is not installed"
    install_to "$prefix"
    libraries=$(dirname "$(find "$prefix" -name tvservice-adapter-testing.pc)")
    read -ra flags <<<"$(PKG_CONFIG_PATH=$libraries pkg-config --cflags --libs tvservice-adapter-testing)"
    cat >"$folder/test.cpp" <<'TEXT'
#include <tvservice-adapter/testing/receiver.h>
int main() {
    tvtest::Receiver receiver;
    receiver.play("0:0", "dvb://1.1.1");
    return receiver.answers().size() == 1 ? 0 : 1;
}
TEXT
    "${CXX:-c++}" "$folder/test.cpp" -o "$folder/test" "${flags[@]}" -Wl,-rpath,"${libraries%/*}"
    "$folder/test"

    # With the adapter's own library, too, it says so.
    read -ra flags <<<"$(PKG_CONFIG_PATH=$libraries pkg-config --cflags --libs tvservice-adapter-testing tvservice-adapter)"
    "${CXX:-c++}" "$folder/test.cpp" -o "$folder/test" -Wl,--no-as-needed "${flags[@]}" \
        -Wl,-rpath,"${libraries%/*}:${libraries%/*}/tvservice-adapter"
    ! "$folder/test" 2>"$folder/test.log" || fail "a receiver runs with two adapters"
    grep -F "link tvservice-adapter::testing instead of tvservice-adapter::client" "$folder/test.log" >"$folder/found"
}

# Without the component for tests, the example is still built; a project that requires the component is not.
BuildsApplicationsWithoutTheTestKit() {
    local component
    for component in runtime development documents; do install_to "$prefix" --component "$component"; done
    cmake -S "$(dirname "$(find "$prefix/share" -name zapping_test.cpp)")" -B "$folder/zapping" \
        -DCMAKE_PREFIX_PATH="$prefix" >"$folder/configure.log"
    cmake --build "$folder/zapping" >"$folder/build.log"
    [[ -f $folder/zapping/libzapping.so && ! -e $folder/zapping/zapping_test ]]
    cat >"$folder/CMakeLists.txt" <<'TEXT'
cmake_minimum_required(VERSION 3.25)
project(tests LANGUAGES CXX)
find_package(tvservice-adapter REQUIRED COMPONENTS testing)
TEXT
    ! cmake -S "$folder" -B "$folder/tests" -DCMAKE_PREFIX_PATH="$prefix" 2>"$folder/cmake.log" >"$folder/configure.log" ||
        fail "the missing component is not reported"
    grep -F 'its component "testing" is not installed' "$folder/cmake.log" >"$folder/found"
}

RunsWithTheRuntimeAlone() {
    install_to "$prefix" --component runtime
    export TVSA_LOG=info
    start_receiver --application control
    expect frame-host "tvservice: connected"
    expect frame-host "mmservice: connected"
}

OffersItsPythonModule() {
    local module
    install_to "$prefix" --component runtime
    install_to "$prefix" --component python
    module=$(find "$prefix" -path '*/tvservice/__init__.py')
    PYTHONPATH=${module%/tvservice/*} PATH=$prefix/bin:$PATH python3 -B - <<'TEXT' >"$folder/python.log"
import importlib.metadata
from tvservice.local import LocalReceiver

with LocalReceiver() as receiver:
    print(receiver.play("0:0", "dvb://1.1.1").text)
module = importlib.metadata.distribution("tvservice")
print(module.version, [(entry.group, entry.value) for entry in module.entry_points])
TEXT
    expect python "0:0 shown dvb://1.1.1"
    expect python "$("$prefix/bin/frame-host" --version | cut -d' ' -f2) [('pytest11', 'tvservice.pytest_plugin')]"
}

NamesTheVersionInEachLibraryThatApplicationsLink() {
    local version library control soname
    install_to "$prefix"
    version=$("$prefix/bin/tvctl" --version)
    version=${version#tvctl } version=${version%.*}
    control=$(find "$prefix" -name libcontrol-application.so)
    for library in libframe-platform.so libapp-tvservice-adapter.so libtvservice-adapter-testing.so; do
        soname=$(dynamic SONAME "$(find "$prefix" -name "$library")")
        [[ $soname == "$library.$version" ]] || fail "$library has the SONAME '$soname'"
        [[ $library != *testing* ]] || continue # only tests link it
        dynamic NEEDED "$control" | grep -xF "$soname" >"$folder/found" || fail "an application does not record $soname"
    done
    soname=$(dynamic SONAME "$control")
    [[ -z $soname ]] || fail "the application, which nothing links, has the SONAME '$soname'"
}

BuildsApplicationsWithPkgConfig() {
    local example=minimal-application compiler=${CXX:-c++} flags libraries cmake_flags
    command -v pkg-config >/dev/null || skip "pkg-config is not installed"
    install_to "$folder/original"
    mv "$folder/original" "$prefix"
    PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name tvservice-adapter.pc)")
    export PKG_CONFIG_PATH
    read -ra flags <<<"$(pkg-config --cflags tvservice-adapter)"
    read -ra libraries <<<"$(pkg-config --libs tvservice-adapter)"
    "$compiler" -shared -fPIC "${flags[@]}" "$(find "$prefix" -name "$example.cpp")" -o "$folder/lib$example.so" \
        "${libraries[@]}"

    cat >"$folder/CMakeLists.txt" <<TEXT
cmake_minimum_required(VERSION 3.25)
project($example LANGUAGES CXX)
find_package(tvservice-adapter REQUIRED)
add_library($example MODULE $(find "$prefix" -name "$example.cpp"))
target_link_libraries($example PRIVATE tvservice-adapter::client)
TEXT
    cmake -S "$folder" -B "$folder/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >"$folder/configure.log"
    cmake --build "$folder/build" >"$folder/build.log"
    read -ra cmake_flags <<<"$(grep -F '"command"' "$folder/build/compile_commands.json" | sed 's/-isystem /-I/g')"
    diff <(compile_flags "${flags[@]}") <(compile_flags "${cmake_flags[@]}") ||
        fail "the CMake package compiles with other flags"
    diff <(dynamic NEEDED "$folder/lib$example.so") <(dynamic NEEDED "$folder/build/lib$example.so") ||
        fail "the CMake package links other libraries"

    start_receiver --application "$folder/lib$example.so"
    expect frame-host "dvb://1.1.1: result 0"
}

IsRemovedByUninstall() {
    local own
    install_to "$prefix"
    install_to "$folder/part" --component runtime
    own=$(dirname "$(find "$prefix" -name libcontrol-application.so)")/own-application.so
    touch "$own" "$prefix/bin/own"
    cmake --build "$build" --target uninstall >"$folder/uninstall.log"
    diff <(files_in "$folder/part") /dev/null || fail "files of a component are left"
    diff <(find "$prefix" "$folder/part" -path '*/tvservice-adapter*' -o -type f -o -type l | sort) \
        <(printf '%s\n' "$(dirname "$own")" "$own" "$prefix/bin/own" | sort) ||
        fail "other files are left (<), or other people's are gone (>)"
    ! cmake --build "$build" --target uninstall >"$folder/uninstall.log" 2>&1 || fail "it removed nothing twice"
    grep -F "nothing to uninstall" "$folder/uninstall.log" >"$folder/found"
}

# Prints the long options that --help lists.
options_of() { # PROGRAM [COMMAND]
    TVSA_CONFIG=/dev/null "$@" --help | grep -oE -- '^  (-.,)?--[a-z-]+' | grep -oE -- '--.*' | sort
}

HasAManualPageForEachOptionAndSetting() {
    local page program
    command -v man >/dev/null || skip "man is not installed"
    install_to "$prefix"
    export LC_ALL=C.UTF-8 MANWIDTH=200
    for page in man1/{frame-host,tvserviced,mmserviced,tvctl}.1 man5/tvservice-adapter{,-run-log}.5; do
        man --warnings -l "$prefix/share/man/$page" >"$folder/${page##*/}" 2>"$folder/warnings.log"
        [[ ! -s $folder/warnings.log ]] || fail "$page causes warnings"
    done
    for program in frame-host tvserviced mmserviced tvctl; do
        options_of "$prefix/bin/$program" | has_all "$program.1"
    done
    options_of "$prefix/bin/tvctl" watch | has_all tvctl.1
    TVSA_CONFIG=/dev/null "$prefix/bin/tvctl" config | sed -nE 's/^([a-z_]+\.[a-z_]+) .*/\1/p' |
        has_all tvservice-adapter.5
    printf '%s\n' logCode logTime errorCode logKind eventId logText | has_all tvservice-adapter-run-log.5
}
# Checks that a page shows all lines of the input.
has_all() { # PAGE
    local line lines
    mapfile -t lines
    ((${#lines[@]})) || fail "nothing to look for in $1"
    for line in "${lines[@]}"; do
        grep -qwF -- "$line" "$folder/$1" || fail "$1 does not show $line"
    done
}

# Prints the words that a shell's completion has for the last word of a line.
complete_in_bash() { # WORD...
    # shellcheck disable=SC2016 # for that shell
    bash -c 'source "$1"; COMP_WORDS=("${@:2}") COMP_CWORD=$(($# - 2)); _tvctl; printf "%s\n" "${COMPREPLY[@]}"' \
        bash "$prefix/share/bash-completion/completions/tvctl" "$@"
}
complete_in_zsh() { # WORD...
    # The shell's own functions would need a terminal. They filter by the last word; here this script does.
    # shellcheck disable=SC2016
    zsh -f -c '_describe() { local list=$@[-1]; print -rl -- ${${(P)list}%%:*} }
        compadd() { _describe "$@" }
        words=("${@[2,-1]}"); CURRENT=$#words; source "$1"' \
        zsh "$prefix/share/zsh/site-functions/_tvctl" "$@" | grep -e "^${*: -1}"
}
complete_in_fish() { # WORD...
    # shellcheck disable=SC2016
    HOME=$folder fish --no-config -c 'source $argv[1]; complete -C "$argv[2]"' \
        "$prefix/share/fish/vendor_completions.d/tvctl.fish" "$*" | cut -f1
}
# Checks that a shell completes the last word to all words of a list.
completes() { # SHELL LIST WORD...
    local found
    found=$("complete_in_$1" "${@:3}" | sort | paste -sd' ') || true # grep fails without a word
    [[ $found == "$2" ]] || fail "$1 completes '${*:3}' to '$found', not to '$2'"
}
completes_tvctl() { # SHELL
    command -v "$1" >/dev/null || skip "$1 is not installed"
    install_to "$prefix"
    mkdir "$folder/bin"
    # A process whose commands are these.
    cat >"$folder/bin/tvctl" <<'TEXT'
#!/bin/sh
[ "$*" = "--target other --timeout 1 help" ] && printf '%s\n' "play TERMINAL  plays" "pause  pauses" "stop  stops"
TEXT
    chmod +x "$folder/bin/tvctl"
    PATH=$folder/bin:$PATH
    completes "$1" watch tvctl wa
    completes "$1" watch tvctl --timeout 3 --json wa
    completes "$1" "pause play" tvctl --target other p
    completes "$1" "$(options_of "$prefix/bin/tvctl" | paste -sd' ')" tvctl --
    completes "$1" "$(options_of "$prefix/bin/tvctl" watch | paste -sd' ')" tvctl watch --
    completes "$1" "" tvctl watch --count ""
}
CompletesCommandsInBash() { completes_tvctl bash; }
CompletesCommandsInZsh() { completes_tvctl zsh; }
CompletesCommandsInFish() { completes_tvctl fish; }

HasDocumentsWhoseLinksWork() {
    install_to "$prefix"
    python3 -B "$source/tests/check-links.py" "$prefix/share/doc/tvservice-adapter"
}

"$test"
