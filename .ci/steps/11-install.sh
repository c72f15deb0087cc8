#!/usr/bin/env bash
# Installation: build the libraries and the simulator as on a machine without
# GoogleTest and Google Benchmark (default options, those two hidden), install
# them into a staging prefix, move the prefix elsewhere (the installed tree
# must be relocatable), then check the SONAMEs, compile every installed header
# on its own (the core's, the server engine's, the simulator's), and build
# every example that uses the package (the consumer, the integration guide's
# file server on the server engine, the middleware test on the simulator) from
# the prefix alone, once through the CMake package and once through
# pkg-config, and run each build. The programs' manual pages render and the
# scan's bash completion parses; an unknown component of the package is named.
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/deps build install
src=$PWD
build=build/install-check
rm -rf "$build"  # a fresh configure: the cache must not remember other options
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

timeout 300 cmake --preset default -B "$build" -DOSTREL_BUILD_DOCS=OFF \
  -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON \
  -DOSTREL_GTEST_SOURCE_DIR=/nonexistent >"$work/configure.log"
grep -q "GoogleTest not found: tests left out" "$work/configure.log" ||
  { cat "$work/configure.log"; echo "the build still wants GoogleTest"; exit 1; }
timeout 600 cmake --build "$build" -j2
timeout 120 cmake --install "$build" --prefix "$work/stage" >/dev/null
mv "$work/stage" "$work/prefix"
prefix=$work/prefix
libdir=$(dirname "$(find "$prefix" -name OstrelGingaCommonCore.pc)")/..
libdir=$(cd "$libdir" && pwd)
incdir=$prefix/include/Ostrel

echo "-- libraries and their SONAME"
for lib in OstrelGingaCommonCore OstrelGingaCommands OstrelISDBTUtils OstrelLogger; do
  soname=$(readelf -d "$libdir/lib$lib.so.2.0.0" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
  [ "$soname" = "lib$lib.so.2" ] || { echo "lib$lib: SONAME '$soname'"; exit 1; }
  [ -L "$libdir/lib$lib.so.2" ] && [ -L "$libdir/lib$lib.so" ] ||
    { echo "lib$lib: links missing"; exit 1; }
  echo "lib$lib.so.2.0.0: SONAME $soname"
done

echo "-- every installed header compiles on its own (C++98 and C++11)"
count=0
for header in "$incdir"/*.h; do
  name=$(basename "$header")
  # The table library's times are long long, an extension every gnu++98
  # compiler accepts; the core's own headers are held to strict C++98.
  extra=-Wno-long-long
  case $name in OstrelGingaCommonCore.h | RequestFollower*.h | Cacher*.h | OstrelExport.h) extra= ;; esac
  for std in "-std=gnu++98 -pedantic $extra" "-std=c++11 -pedantic"; do
    echo "#include <$name>" | g++ $std -fsyntax-only -Wall -Wextra -Werror -I"$incdir" -x c++ - ||
      { echo "$name does not compile on its own ($std)"; exit 1; }
  done
  count=$((count + 1))
done
echo "$count headers"
echo "-- every simulator header compiles on its own (C++17)"
for header in "$incdir"/sim/*.h; do
  echo "#include <$(basename "$header")>" | g++ -std=c++17 -pedantic -fsyntax-only -Wall -Wextra \
    -Werror -I"$incdir/sim" -I"$incdir/server" -I"$incdir" -x c++ - ||
    { echo "sim/$(basename "$header") does not compile on its own"; exit 1; }
done
echo "-- every server engine header compiles on its own (C++11)"
count=0
for header in "$incdir"/server/*.h; do
  echo "#include <$(basename "$header")>" | g++ -std=c++11 -pedantic -fsyntax-only -Wall -Wextra \
    -Werror -I"$incdir/server" -I"$incdir" -x c++ - ||
    { echo "server/$(basename "$header") does not compile on its own"; exit 1; }
  count=$((count + 1))
done
[ "$count" -gt 0 ] || { echo "no server engine header installed"; exit 1; }
echo "$count headers"

echo "-- every published operation, called as older code does (C++98 and C++11)"
for std in gnu++98 c++11; do
  g++ -std=$std -pedantic -Wall -Wextra -Werror -I"$incdir" \
    "$src/examples/consumer/published_calls.cpp" -o "$work/published-$std" \
    -L"$libdir" -lOstrelGingaCommonCore -lOstrelGingaCommands -lOstrelISDBTUtils -lOstrelLogger \
    -pthread -Wl,-rpath,"$libdir"
  "$work/published-$std" 2>/dev/null
done

# example DIR PROGRAM STD PKGS SOURCES ARGS...: builds examples/DIR through its
# CMake project and through pkg-config (SOURCES, a pattern in DIR, with the
# flags of PKGS, one or more package names, the first giving the run path), and
# runs both builds with ARGS.
example() {
  local dir=$1 program=$2 std=$3 pkg=$4 sources=$5
  shift 5
  echo "-- $dir through the CMake package"
  timeout 300 cmake -S "$src/examples/$dir" -B "$work/$dir-cmake" -G Ninja \
    -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
  timeout 300 cmake --build "$work/$dir-cmake"
  timeout 120 "$work/$dir-cmake/$program" "$@"
  echo "-- $dir through pkg-config ($pkg)"
  local flags
  flags=$(pkg-config --cflags --libs "$pkg")
  echo "pkg-config: $flags"
  # shellcheck disable=SC2086 # one word per flag
  g++ -std="$std" -Wall -Wextra -Werror "$src/examples/$dir"/$sources -o "$work/$dir-pc" \
    $flags -Wl,-rpath,"$(pkg-config --variable=libdir "${pkg%% *}")"
  timeout 120 "$work/$dir-pc" "$@"
}

export PKG_CONFIG_PATH=$libdir/pkgconfig
pkg-config --exact-version=2.0.0 OstrelGingaCommonCore
"$prefix/bin/ostrel-mksample" "$work/sample.ts"
# Status 4: the sample never carries one PMT its PAT names.
status=0
timeout 60 "$prefix/bin/ostrel-scan" --fast --once --no-latency --quiet "$work/sample.ts" \
  >"$work/scan.txt" || status=$?
[ "$status" = 4 ] && grep -q "Ostrel HD" "$work/scan.txt" ||
  { echo "the installed ostrel-scan does not scan the sample (status $status)"; exit 1; }
"$prefix/bin/ostrel-scan" --version | grep -qx "ostrel-scan $(pkg-config --modversion OstrelGingaCommonCore)"

echo "-- manual pages (man finds and renders them, groff warns of nothing) and bash completion"
pages=(ostrel-scan ostrel-mksample)
[ -x "$prefix/bin/ostrel-dvb-emu" ] && pages+=(ostrel-dvb-emu)
for page in "${pages[@]}"; do
  file=$prefix/share/man/man1/$page.1
  [ -f "$file" ] || { echo "$page: no manual page installed"; exit 1; }
  warnings=$(groff -man -Tutf8 -ww -z "$file" 2>&1)
  [ -z "$warnings" ] || { echo "$page.1: $warnings"; exit 1; }
  MANPATH=$prefix/share/man man -P cat "$page" 2>/dev/null | grep -q "^NAME" ||
    { echo "man does not find $page under $prefix/share/man"; exit 1; }
done
completion=$prefix/share/bash-completion/completions/ostrel-scan
bash -n "$completion"
bash -c 'shopt -s extglob; source "$1"; COMP_WORDS=(ostrel-scan --jso); COMP_CWORD=1
  _ostrel_scan; [ "${COMPREPLY[*]}" = --json ]' _ "$completion" ||
  { echo "the completion does not complete --jso"; exit 1; }
echo "${pages[*]}: manual pages render; completion parses"

echo "-- an unknown component is refused by name, with the known ones"
mkdir -p "$work/component"
cat >"$work/component/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(component LANGUAGES CXX)
find_package(OstrelGingaCommonCore 2 CONFIG REQUIRED COMPONENTS Simulatr)
CMAKE
if timeout 120 cmake -S "$work/component" -B "$work/component/build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$prefix" >"$work/component.log" 2>&1; then
  echo "find_package accepted the unknown component Simulatr"; exit 1
fi
grep -q "no component Simulatr in this package (its components: Simulator)" "$work/component.log" ||
  { cat "$work/component.log"; echo "the unknown component is not named"; exit 1; }

example consumer consumer c++11 OstrelGingaCommonCore consumer.cpp
example file_server file_server c++11 "OstrelGingaCommonCore OstrelServer" '*.cpp' "$work/sample.ts"
example middleware_test middleware_test c++17 OstrelSim '*.cpp' "$work/sample.ts"

# The examples' own threads under ThreadSanitizer: a lock held around a call into the
# core while a notification takes it shows as a lock-order inversion on every run.
echo "-- the threaded examples under ThreadSanitizer"
# shellcheck disable=SC2046 # one word per flag
for args in "file_server c++11 OstrelGingaCommonCore OstrelServer" "middleware_test c++17 OstrelSim"; do
  set -- $args
  dir=$1 std=$2
  shift 2
  g++ -std="$std" -g -O1 -fsanitize=thread -Wall -Wextra -Werror "$src/examples/$dir"/*.cpp \
    -o "$work/$dir-tsan" $(pkg-config --cflags --libs "$@") -Wl,-rpath,"$libdir"
  TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 timeout 120 "$work/$dir-tsan" "$work/sample.ts" |
    tail -n 1
done

# The same on the receiver's CPU, when step 10 left an ARM build: install it
# into a staging tree, cross-build the consumer both ways, run it under qemu.
if [ -f build/arm/core/libOstrelGingaCommonCore.so.2.0.0 ]; then
  echo "-- ARM: consumer against a staging tree, through the CMake package"
  stage=$work/arm-stage
  timeout 120 cmake --install build/arm --prefix "$stage/usr" >/dev/null
  timeout 300 cmake -S "$src/examples/consumer" -B "$work/arm-consumer" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$src/cmake/toolchains/arm-linux-gnueabihf.cmake" \
    -DCMAKE_FIND_ROOT_PATH="$stage" >/dev/null
  timeout 300 cmake --build "$work/arm-consumer"
  qemu-arm -L /usr/arm-linux-gnueabihf "$work/arm-consumer/consumer" | tail -n 1
  echo "-- ARM: through pkg-config"
  flags=$(PKG_CONFIG_PATH= PKG_CONFIG_LIBDIR="$stage/usr/lib/pkgconfig" \
    pkg-config --cflags --libs OstrelGingaCommonCore)
  arm-linux-gnueabihf-g++ -std=c++11 -Wall -Wextra -Werror -Wno-psabi \
    "$src/examples/consumer/consumer.cpp" -o "$work/arm-consumer-pc" $flags \
    -Wl,-rpath,"$stage/usr/lib"
  qemu-arm -L /usr/arm-linux-gnueabihf "$work/arm-consumer-pc" | tail -n 1
fi
