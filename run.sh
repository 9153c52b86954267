#!/usr/bin/env bash
# Installs what is missing, builds vrnl (release) and runs it with the given arguments.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
"$root/scripts/install-deps.sh" >&2
cmake -S "$root" -B "$root/build/release" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DVARNEL_TESTS=OFF -DVARNEL_BENCH=OFF >&2
cmake --build "$root/build/release" --target vrnl >&2
exec "$root/build/release/bin/vrnl" "$@"
