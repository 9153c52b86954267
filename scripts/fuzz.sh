#!/usr/bin/env bash
# Runs one libFuzzer target of fuzz/ for a while under AddressSanitizer and UBSan.
#
#   scripts/fuzz.sh NAME [SECONDS] [LIBFUZZER OPTIONS...]
#
# NAME is a target of fuzz/ without "_fuzz" (git_status, git_log, git_refs, diff_parser,
# json_writer, ...); SECONDS defaults to 60. Configures a clang build in build/fuzz (the whole
# engine built with coverage for the fuzzer), builds the target, and runs it on a copy of its
# seed corpus in build/fuzz/corpus/NAME, so that the inputs it finds stay out of the source tree.
# Each input gets at most one second. A crash leaves its input in build/fuzz/artifacts/.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
name="${1:?usage: scripts/fuzz.sh NAME [SECONDS] [LIBFUZZER OPTIONS...]}"
seconds="${2:-60}"
shift $(($# < 2 ? $# : 2))
[ -f "$root/fuzz/${name}_fuzz.cpp" ] || { echo "no fuzz target fuzz/${name}_fuzz.cpp" >&2; exit 2; }
command -v clang++ > /dev/null || { echo "clang++ is needed (apt-get install clang)" >&2; exit 1; }

build="$root/build/fuzz"
if [ ! -f "$build/CMakeCache.txt" ]; then
    CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DVARNEL_FUZZ=ON -DVARNEL_TESTS=OFF -DVARNEL_BENCH=OFF > /dev/null
fi
nice cmake --build "$build" --target "${name}_fuzz"

corpus="$build/corpus/$name"
mkdir -p "$corpus" "$build/artifacts"
cp -n "$root/fuzz/corpus/$name"/* "$corpus/" 2> /dev/null || true
export VARNEL_RESOURCES="$build/share/varnel/resources"
exec "$build/bin/${name}_fuzz" -max_total_time="$seconds" -timeout=1 -rss_limit_mb=2048 \
    -artifact_prefix="$build/artifacts/$name-" -print_final_stats=1 "$@" "$corpus"
