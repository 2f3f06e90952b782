#!/usr/bin/env bash
# Builds the engine and its quick suites for 64-bit machines, which the rest of the tree does not know, and runs them.
# usage: build_64.sh SOURCE BUILD GOOGLETEST    exit code 77: there is no 64-bit compiler
set -eu
source=$1 build=$2 googletest=$3

mkdir -p "$build"
if ! echo '#include <cstddef>
int main() { static_assert(sizeof(void*) == 8); }' | c++ -m64 -x c++ -o "$build/probe" - 2>"$build/probe.log"; then
    echo "SKIPPED: c++ -m64 builds no program here: $(head -n 1 "$build/probe.log")"
    exit 77
fi

cmake -S "$source" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_FLAGS=-m64 -DCMAKE_CXX_FLAGS=-m64 \
    -DCMAKE_CXX_FLAGS_DEBUG="-O0 -D_GLIBCXX_ASSERTIONS" -DTESSALY_WERROR=ON -DTESSALY_PROGRAMS=OFF \
    -DTESSALY_GOOGLETEST_DIR="$googletest" >"$build/configure.log" || { cat "$build/configure.log"; exit 1; }
cmake --build "$build" --target engine_test >"$build/build.log" || { cat "$build/build.log"; exit 1; }
exec "$build/bin/tests/engine_test" --gtest_brief=1
