#!/usr/bin/env bash
# package_check.sh STEP BUILD STAGE WORK SOURCE VERSION LIBDIR CMAKE CXX
# The library as its users get it, one step per ctest test:
#   install          `cmake --install BUILD --prefix STAGE`, then what landed there: the files, the
#                    soname and its links, headers that compile alone, the program finding its
#                    library, the pkg-config file and the CMake package's version checks
#   build-cmake      the example as a separate CMake project, find_package(mediasession) on STAGE
#   build-pkgconfig  the example compiled by hand with the flags pkg-config gives
#   run-cmake, run-pkgconfig
#                    one of those programs run to the end: a call on loopback whose lines all carry
#                    media, and its report as valid JSON
set -uo pipefail
step=$1 build=$2 stage=$3 work=$4 source=$5 version=$6 libdir=$7 cmake=$8 cxx=$9
example=$source/examples/call
failures=0

fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}
# run WHAT COMMAND...: runs it, showing its output only when it fails.
run() {
    local what=$1 log
    shift
    log=$(mktemp)
    if ! "$@" >"$log" 2>&1; then
        fail "$what"
        sed 's/^/    /' "$log" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}
finish() {
    [ "$failures" -eq 0 ] && echo "$step: ok" && exit 0
    echo "$step: $failures failed" >&2
    exit 1
}
# loads_staged PROGRAM: the loader resolves its libmediasession to the staged file.
loads_staged() {
    local found
    found=$(ldd "$1" | awk '$1 ~ /^libmediasession\.so/ { print $3 }')
    [ -n "$found" ] && [ "$(readlink -f "$found")" = "$(readlink -f "$stage/$libdir/$soname")" ] && return 0
    fail "$(basename "$1") does not load the staged library: $(ldd "$1" | grep mediasession)"
}

# Only the stage may answer, never an installed copy elsewhere on the machine.
export PKG_CONFIG_PATH=$stage/$libdir/pkgconfig PKG_CONFIG_LIBDIR=$stage/$libdir/pkgconfig
unset LD_LIBRARY_PATH
soname=libmediasession.so.${version%%.*}

case $step in
install)
    rm -rf "$stage"
    run "cmake --install" "$cmake" --install "$build" --prefix "$stage" || finish

    # kind path: f a file, l a link to the versioned library, x a program
    while read -r kind path; do
        case $kind in
        f) [ -f "$stage/$path" ] && [ ! -L "$stage/$path" ] || fail "$path is not installed as a file" ;;
        l) [ "$(readlink -f "$stage/$path")" = "$(readlink -f "$stage/$libdir/libmediasession.so.$version")" ] ||
            fail "$path does not lead to libmediasession.so.$version" ;;
        x) [ -x "$stage/$path" ] || fail "$path is not an installed program" ;;
        esac
    done <<EOF
f $libdir/libmediasession.so.$version
l $libdir/$soname
l $libdir/libmediasession.so
f include/mediasession/ZynMediaEngine.h
f include/mediasession/ZynMediaConnection.h
f include/mediasession/ZynMediaConfig.h
f include/mediasession/ZynDefines.h
f include/mediasession/ZynMediaTrack.h
f $libdir/cmake/mediasession/mediasessionConfig.cmake
f $libdir/cmake/mediasession/mediasessionConfigVersion.cmake
f $libdir/cmake/mediasession/mediasessionTargets.cmake
f $libdir/pkgconfig/mediasession.pc
x bin/mediasession
EOF

    # Nothing of the build's inside: no archive, no header outside the public folder.
    leaked=$(cd "$stage" && find . \( -name '*.a' -o \( -name '*.h' -not -path './include/mediasession/*' \) \))
    [ -z "$leaked" ] || fail "parts of the build were installed: $leaked"

    # The link the loader looks for is the name the library gives itself.
    readelf -d "$stage/$libdir/libmediasession.so.$version" | grep -qF "Library soname: [$soname]" ||
        fail "the installed library's soname is not $soname"

    # Each public header compiles alone, in the oldest language the package asks for, so it
    # includes everything it uses and nothing that stayed behind.
    for header in "$stage"/include/mediasession/*.h; do
        printf '#include <mediasession/%s>\n' "$(basename "$header")" |
            run "$(basename "$header") compiles alone" \
                "$cxx" -std=c++11 -Wall -Wextra -Werror -fsyntax-only -I"$stage/include" -x c++ -
    done

    # The program finds the library beside it, wherever the prefix went.
    loads_staged "$stage/bin/mediasession"
    run "bin/mediasession version" "$stage/bin/mediasession" version

    # pkg-config, relocated with the stage.
    [ "$(pkg-config --modversion mediasession)" = "$version" ] || fail "pkg-config names another version"
    [ "$(readlink -f "$(pkg-config --variable=libdir mediasession)")" = "$(readlink -f "$stage/$libdir")" ] ||
        fail "pkg-config's libdir is not the stage's: $(pkg-config --variable=libdir mediasession)"

    # The CMake package's version file: which requests it accepts.
    major=${version%%.*} minor=${version#*.}
    minor=${minor%%.*}
    probe=$(mktemp -d)
    while read -r wanted accepted; do
        printf '%s\n' 'cmake_minimum_required(VERSION 3.16)' 'project(probe LANGUAGES NONE)' \
            "find_package(mediasession $wanted CONFIG REQUIRED)" >"$probe/CMakeLists.txt"
        rm -rf "$probe/build"
        got=no
        "$cmake" -S "$probe" -B "$probe/build" -DCMAKE_PREFIX_PATH="$stage" >/dev/null 2>&1 && got=yes
        [ "$got" = "$accepted" ] || fail "find_package(mediasession $wanted) accepted: $got, wanted $accepted"
    done <<EOF
$version yes
$major.$minor yes
$major.0 yes
$major.$((minor + 1)) no
$((major + 1)) no
EOF
    rm -rf "$probe"
    ;;

build-cmake)
    out=$work/cmake
    rm -rf "$out"
    run "the example configures against the stage" \
        "$cmake" -S "$example" -B "$out" -G Ninja -DCMAKE_PREFIX_PATH="$stage" -DCMAKE_CXX_COMPILER="$cxx" || finish
    found=$(sed -n 's/^mediasession_DIR:PATH=//p' "$out/CMakeCache.txt")
    [ "$(readlink -f "$found")" = "$(readlink -f "$stage/$libdir/cmake/mediasession")" ] ||
        fail "find_package found the package in $found, not in the stage"
    run "the example builds with find_package" "$cmake" --build "$out" || finish
    loads_staged "$out/mediasession_example"
    ;;

build-pkgconfig)
    out=$work/pkgconfig
    rm -rf "$out" && mkdir -p "$out"
    # shellcheck disable=SC2046  # the flags are words
    run "the example builds with pkg-config" \
        "$cxx" -std=c++17 -Wall -Wextra -Werror $(pkg-config --cflags mediasession) "$example/main.cpp" \
        -o "$out/mediasession_example" $(pkg-config --libs mediasession) \
        -Wl,-rpath,"$(pkg-config --variable=libdir mediasession)" || finish
    loads_staged "$out/mediasession_example"
    ;;

run-cmake | run-pkgconfig)
    program=$work/${step#run-}/mediasession_example
    report=$(MEDIASESSION_ALLOWED_ADDRS=127.0.0.1,::1 "$program" --timeout-ms 10000)
    status=$?
    echo "$report"
    [ "$status" -eq 0 ] || fail "the example ended with status $status"
    python=python3
    [ -x /usr/bin/python3 ] && python=/usr/bin/python3
    "$python" -c '
import json, sys
r = json.loads(sys.stdin.read())
lines = [l for c in r["connections"] for l in c["lines"]]
# Media came in over a pair ICE chose, under keys DTLS agreed.
ok = lambda l: l["mediaReceived"] and l["statistics"]["packetsReceived"] > 0 and \
    l["statistics"]["candidateType"] and l["statistics"]["srtpSuite"]
sys.exit(0 if r["media"] and len(lines) == 4 and all(ok(l) for l in lines) else 1)' <<<"$report" ||
        fail "the report is not JSON with keyed media counted on all four lines"
    ;;

*)
    echo "unknown step $step" >&2
    exit 2
    ;;
esac
finish
