#!/usr/bin/env bash
# Installs what is missing, builds with AddressSanitizer and UndefinedBehaviorSanitizer, checks the
# formatting and runs the whole test suite.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$root/build/test" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DVARNEL_SANITIZE=ON -DVARNEL_WERROR=ON -DVARNEL_BENCH=OFF
cmake --build "$root/build/test"
# The optimised build warns about things the debug build does not; it must stay clean too.
cmake -S "$root" -B "$root/build/release-check" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DVARNEL_WERROR=ON -DVARNEL_TESTS=OFF -DVARNEL_BENCH=ON
cmake --build "$root/build/release-check"
"$root/scripts/check-format.sh"
cd "$root/build/test"
ctest --output-on-failure -j "$(nproc)"
