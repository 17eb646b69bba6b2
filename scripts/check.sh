#!/usr/bin/env bash
# check.sh [STEP...]: the checks beyond the tests; all of them when none is named, except coverage.
#   format    clang-format finds nothing to change
#   tidy      clang-tidy is silent
#   asan      all tests under AddressSanitizer and UndefinedBehaviorSanitizer
#   tsan      the tests with threads under ThreadSanitizer
#   fuzz      every fuzz target for a short while (FUZZ_SECONDS, 10)
#   bench     every benchmark for a moment
#   install   installs into a prefix, moves it, and builds programs against it with pkg-config and find_package, and a
#             driver module
#   clang     builds with clang++ and runs all tests
#   coverage  line and branch coverage of the library by its tests
set -euo pipefail
cd "$(dirname "$0")/.."
shopt -s nullglob
jobs=$(nproc)

sources() { git ls-files -- 'vorncore/*.h' 'vorncore/*.cpp' 'programs/*.h' 'programs/*.cpp' 'drivers/*.h' "$@"; }

build() { # PRESET [OPTION...]
    cmake --preset "$@" -DVORNCORE_WERROR=ON >/dev/null
    cmake --build --preset "$1" -- --quiet
}

clang_build() {
    cmake -S . -B build/clang -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
        -DVORNCORE_WERROR=ON >/dev/null
}

check_format() {
    sources 'drivers/*.c' 'tests/*.h' 'tests/*.cpp' 'tests/*.c' 'bench/*.cpp' 'examples/*.c' 'examples/*.cpp' |
        xargs clang-format --dry-run --Werror
}

check_tidy() {
    clang_build
    sources | grep '\.cpp$' | xargs -P "$jobs" -n 4 clang-tidy --quiet -p build/clang 2>/dev/null
}

check_asan() {
    build asan
    ctest --preset asan --parallel "$jobs"
}

check_tsan() {
    build tsan
    ctest --preset tsan --parallel "$jobs" --label-regex threads
}

check_fuzz() {
    build fuzz
    local target corpus
    for target in build/fuzz/tests/fuzz/*_fuzz; do
        corpus=$(mktemp -d)
        cp "tests/fuzz/corpus/$(basename "$target")"/* "$corpus"
        echo "fuzz: $(basename "$target")"
        "$target" -max_total_time="${FUZZ_SECONDS:-10}" -max_len=4096 -timeout=20 -print_final_stats=0 -verbosity=0 \
            -artifact_prefix=build/fuzz/ "$corpus"
        rm -rf "$corpus"
    done
}

check_bench() { scripts/bench.sh --short >/dev/null; }

check_install() {
    cmake --preset release >/dev/null
    cmake --build --preset release -- --quiet
    local folder
    folder=$(mktemp -d)
    cmake --install build/release --prefix "$folder/first" >/dev/null
    mv "$folder/first" "$folder/moved"
    local pc
    pc=$(dirname "$(find "$folder/moved" -name vorncore.pc)")
    # shellcheck disable=SC2046
    PKG_CONFIG_PATH=$pc cc -o "$folder/consumer" tests/install/consumer.c \
        $(PKG_CONFIG_PATH=$pc pkg-config --cflags --libs vorncore)
    LD_LIBRARY_PATH=$(dirname "$pc") "$folder/consumer"
    cmake -S tests/install -B "$folder/build" -DCMAKE_PREFIX_PATH="$folder/moved" >/dev/null
    cmake --build "$folder/build" >/dev/null
    "$folder/build/consumer_vorncore"
    local drivers
    drivers=$(PKG_CONFIG_PATH=$pc pkg-config --variable=driverdir vorncore)
    LD_LIBRARY_PATH=$drivers "$folder/build/consumer_static"
    rm "$drivers/vorncore_nulldb.so" # one that an author builds from the installed headers takes its place
    if "$folder/build/consumer_vorncore"; then
        echo "a driver was found that is not in $drivers" >&2
        return 1
    fi
    # shellcheck disable=SC2046
    PKG_CONFIG_PATH=$pc cc -shared -fPIC -o "$drivers/vorncore_nulldb.so" drivers/nulldb/nulldb.c \
        $(PKG_CONFIG_PATH=$pc pkg-config --cflags --libs vorncore)
    "$folder/build/consumer_vorncore"
    local needed
    needed=$(readelf -d "$(find "$folder/moved" -name libvorncore.so.1)" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p')
    [ "$needed" = libc.so.6 ] || { echo "the library needs: $needed" >&2; return 1; }
    rm -rf "$folder"
}

check_clang() {
    clang_build
    cmake --build build/clang -- --quiet
    ctest --test-dir build/clang --output-on-failure --parallel "$jobs"
}

check_coverage() {
    build coverage
    find build/coverage -name '*.gcda' -delete
    ctest --preset coverage --parallel "$jobs"
    gcovr --root . --filter vorncore/ --exclude-throw-branches --print-summary build/coverage
}

[ $# -gt 0 ] || set -- format tidy asan tsan fuzz bench install clang
scripts/setup.sh build check bench
for step in "$@"; do
    echo "== $step"
    "check_$step"
done
