#!/usr/bin/env bash
# Installs what is missing, builds with AddressSanitizer and UndefinedBehaviorSanitizer, checks the
# formatting and runs the whole test suite.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$root/build/test" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DVARNEL_SANITIZE=ON -DVARNEL_WERROR=ON -DVARNEL_BENCH=OFF
cmake --build "$root/build/test"
"$root/scripts/check-format.sh"
cd "$root/build/test"
ctest --output-on-failure -j "$(nproc)"
