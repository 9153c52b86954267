#!/usr/bin/env bash
# Fails when a C++ source is not formatted as .clang-format says.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
mapfile -t files < <(git ls-files -co --exclude-standard -- '*.cpp' '*.h')
if ((${#files[@]})); then
    clang-format --dry-run --Werror "${files[@]}"
fi
