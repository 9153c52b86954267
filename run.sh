#!/usr/bin/env bash
# Installs what is missing and builds Varnel (release). Without arguments, or with one folder,
# opens the repository window when a display is available, and otherwise prints the terminal
# overview and says so. Any other arguments run vrnl with them (./run.sh doctor).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
"$root/scripts/install-deps.sh" >&2
cmake -S "$root" -B "$root/build/release" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DVARNEL_TESTS=OFF -DVARNEL_BENCH=OFF >&2

folder=""
if (($# == 0)); then
    folder="."
elif (($# == 1)) && [[ -d "$1" ]]; then
    folder="$1"
fi

if [[ -n "$folder" ]]; then
    if [[ -n "${DISPLAY:-}" || -n "${WAYLAND_DISPLAY:-}" ]]; then
        cmake --build "$root/build/release" --target varnel vrnl >&2
        exec "$root/build/release/bin/varnel" "$folder"
    fi
    cmake --build "$root/build/release" --target vrnl >&2
    echo "No display (DISPLAY and WAYLAND_DISPLAY are unset): showing the terminal overview." >&2
    exec "$root/build/release/bin/vrnl" overview "$folder"
fi
cmake --build "$root/build/release" --target vrnl >&2
exec "$root/build/release/bin/vrnl" "$@"
