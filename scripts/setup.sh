#!/usr/bin/env bash
# setup.sh build|demo|check|bench ...: installs what is missing for building and testing, for the demonstration, for all
# checks, for the benchmarks.
# Says what it installs and why; does nothing where everything is there.
set -euo pipefail

missing=()
need() { # PACKAGE REASON
    dpkg-query -W -f '${Status}' "$1" 2>/dev/null | grep -q 'ok installed' && return
    echo "setup: installing $1: $2"
    missing+=("$1")
}

for purpose in "${@:-build}"; do
    case $purpose in
    build)
        need g++ "compiles the library"
        need cmake "drives the build"
        need ninja-build "runs the build"
        need binutils "the test of the exported names reads them with nm"
        need libgtest-dev "the tests are written with Google Test"
        ;;
    demo)
        need python3 "serves the pages that the demonstration fetches"
        ;;
    check)
        need clang "second compiler, and the fuzzer's"
        need libclang-rt-dev "run-time part of clang's sanitizers and of libFuzzer"
        need clang-format "checks the format of the code"
        need clang-tidy "checks the code"
        need pkg-config "builds a program against the installed library"
        need gcovr "reports test coverage"
        need nginx-light "the HTTP client is tested against it"
        need tinyproxy "the HTTP client is tested through it"
        need python3 "the HTTP client's test has a backend written in it"
        need libexpat1-dev "the XML parser's test compares what expat reads"
        ;;
    bench)
        need libbenchmark-dev "the benchmarks are written with Google Benchmark"
        need pkg-config "finds the baselines"
        need python3 "prints the table of ratios"
        need libglib2.0-dev "baseline: GLib"
        need libaprutil1-dev "baseline: APR"
        need libapr1-dev "baseline: APR"
        need libfmt-dev "baseline: fmt"
        need libabsl-dev "baseline: Abseil"
        need libcurl4-openssl-dev "baseline: libcurl"
        need nginx-light "serves the benchmark of the HTTP client"
        need libxml2-dev "baseline: libxml2"
        need libexpat1-dev "baseline: expat"
        need libpugixml-dev "baseline: pugixml"
        need librapidxml-dev "baseline: RapidXml"
        need libtbb-dev "baseline: oneTBB"
        ;;
    *)
        echo "setup: build, demo, check or bench, not '$purpose'" >&2
        exit 2
        ;;
    esac
done

[ ${#missing[@]} -gt 0 ] || exit 0
as_root=
[ "$(id -u)" = 0 ] || as_root=sudo
export DEBIAN_FRONTEND=noninteractive
$as_root apt-get update -qq
$as_root apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null

# Their packages start these two as services. Tests and benchmarks run their own: what was not wanted before is stopped.
for package in "${missing[@]}"; do
    case $package in
    nginx-light | tinyproxy)
        $as_root service "${package%-light}" stop >/dev/null 2>&1 || true
        $as_root update-rc.d "${package%-light}" disable >/dev/null 2>&1 || true
        ;;
    esac
done
