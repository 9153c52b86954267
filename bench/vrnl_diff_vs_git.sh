#!/usr/bin/env bash
# What `vrnl diff --json` costs next to the `git diff` it runs, for one large change.
#
#   bench/vrnl_diff_vs_git.sh [VRNL] [RUNS]
#   bench/vrnl_diff_vs_git.sh --range REPO A B [VRNL] [RUNS]
#
# The second form compares `vrnl diff --range A B --json` (and the text form) in REPO with a
# plain `git diff A B` there, for example on git.git between v2.30.0 and v2.40.0. The runs of
# each round go in turn (git, vrnl --json, vrnl), so that a busy machine slows all alike.
#
# Makes a repository of 10000 files of 400 lines (in $TMPDIR) and changes one line in twenty of
# each, so that `git diff` writes about 100 MB; then runs, RUNS times each (5 by default), git
# with the arguments vrnl gives it and `vrnl diff --json`, both writing to /dev/null, and prints
# the median wall-clock time and the median CPU time (user + system, children included) of each,
# and their ratios to git. "git-pipe" is git writing into a pipe that `cat` empties, the least
# any reader of its output pays. CPU time is the steadier figure on a machine that is busy with other work.
set -euo pipefail

median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

if [ "${1:-}" = "--range" ]; then
    [ $# -ge 4 ] || { echo "usage: $0 --range REPO A B [VRNL] [RUNS]" >&2; exit 2; }
    repo="$(cd "$2" && pwd)" from="$3" to="$4"
    vrnl="${5:-$(dirname "$0")/../build/release/bin/vrnl}"
    runs="${6:-5}"
    [ -x "$vrnl" ] || { echo "no vrnl at $vrnl" >&2; exit 1; }
    vrnl="$(cd "$(dirname "$vrnl")" && pwd)/$(basename "$vrnl")"
    scratch="$(mktemp -d "${TMPDIR:-/tmp}/varnel-diff-bench.XXXXXX")"
    trap 'rm -rf "$scratch"' EXIT
    cd "$repo"
    echo "git diff $from $to: $(git diff "$from" "$to" | wc -c) bytes;" \
         "vrnl --json: $("$vrnl" diff --range "$from" "$to" --json | wc -c) bytes; $runs runs each"
    names=(git vrnl-json vrnl)
    for name in "${names[@]}"; do : > "$scratch/$name"; done
    for _ in $(seq "$runs"); do
        for name in "${names[@]}"; do
            case $name in
                git) command=(git diff "$from" "$to") ;;
                vrnl-json) command=("$vrnl" diff --range "$from" "$to" --json) ;;
                vrnl) command=("$vrnl" diff --range "$from" "$to") ;;
            esac
            /usr/bin/time -f "%e %U %S" -o "$scratch/time" "${command[@]}" > /dev/null
            awk '{ printf "%.3f %.3f\n", $1, $2 + $3 }' "$scratch/time" >> "$scratch/$name"
        done
    done
    declare -A wall cpu
    for name in "${names[@]}"; do
        wall[$name]=$(cut -d' ' -f1 "$scratch/$name" | median)
        cpu[$name]=$(cut -d' ' -f2 "$scratch/$name" | median)
        printf "%-10s wall %7.3f s   cpu %7.3f s\n" "$name" "${wall[$name]}" "${cpu[$name]}"
    done
    for name in vrnl-json vrnl; do
        awk -v n="$name" -v w="${wall[$name]}" -v gw="${wall[git]}" -v c="${cpu[$name]}" \
            -v gc="${cpu[git]}" \
            'BEGIN { printf "%-10s / git: wall %.2f, cpu %.2f\n", n, w / gw, c / gc }'
    done
    exit 0
fi

vrnl="${1:-$(dirname "$0")/../build/release/bin/vrnl}"
runs="${2:-5}"
[ -x "$vrnl" ] || { echo "no vrnl at $vrnl" >&2; exit 1; }
vrnl="$(cd "$(dirname "$vrnl")" && pwd)/$(basename "$vrnl")"

scratch="$(mktemp -d "${TMPDIR:-/tmp}/varnel-diff-bench.XXXXXX")"
trap 'rm -rf "$scratch"' EXIT
export HOME="$scratch/home" XDG_CONFIG_HOME="$scratch/config" XDG_DATA_HOME="$scratch/data"
export GIT_CONFIG_NOSYSTEM=1 GIT_AUTHOR_NAME=Bench GIT_COMMITTER_NAME=Bench
export GIT_AUTHOR_EMAIL=bench@example.com GIT_COMMITTER_EMAIL=bench@example.com
mkdir -p "$HOME" "$XDG_CONFIG_HOME" "$XDG_DATA_HOME"

repo="$scratch/repo"
mkdir -p "$repo"
cd "$repo"
git init -q
for d in $(seq 0 39); do mkdir -p "dir$d"; done
# round 0 writes the committed files, round 1 changes one line in twenty of each.
write_files() {
    awk -v round="$1" 'BEGIN {
        split("value count parser buffer index résumé token state naïve offset length 日本語", w, " ")
        for (f = 0; f < 10000; f++) {
            name = sprintf("dir%d/file %d.txt", f % 40, f)
            for (l = 0; l < 400; l++) {
                r = round == 1 && (l + f) % 20 == 0
                printf "    auto %s_%d = compute(%s, %s, %d);  // %s\n", w[(f + l) % 12 + 1],
                       l + r, w[(f * 7 + l) % 12 + 1], w[(l * 3 + r) % 12 + 1],
                       (f * 400 + l) * (r + 1) % 100000, w[(l + r) % 12 + 1] > name
            }
            close(name)
        }
    }'
}
write_files 0
git add -A
git commit -q -m base
write_files 1

# The words vrnl's Git handler puts before the diff of the working copy's unstaged changes.
git_args=(--no-pager -c color.branch=false -c color.diff=false -c color.status=false
          -c diff.mnemonicprefix=false -c core.quotepath=false -c credential.helper=varnel
          diff --no-ext-diff --src-prefix=a/ --dst-prefix=b/ -M --unified=3 --)

bytes=$(git "${git_args[@]}" | wc -c)
echo "diff of $((bytes / 1000000)) MB; $runs runs each"

# Prints "wall cpu" in seconds for one run of the command.
measure() {
    /usr/bin/time -f "%e %U %S" -o "$scratch/time" "$@" > /dev/null
    awk '{ printf "%.3f %.3f\n", $1, $2 + $3 }' "$scratch/time"
}

declare -A wall cpu
for name in git git-pipe vrnl-json vrnl; do
    : > "$scratch/$name"
    for _ in $(seq "$runs"); do
        case $name in
            git) measure git "${git_args[@]}" >> "$scratch/$name" ;;
            # The same through a pipe, as any program that reads git's output receives it.
            git-pipe) measure sh -c 'git "$@" | cat' sh "${git_args[@]}" >> "$scratch/$name" ;;
            vrnl-json) measure "$vrnl" diff "$repo" --json >> "$scratch/$name" ;;
            vrnl) measure "$vrnl" diff "$repo" >> "$scratch/$name" ;;
        esac
    done
    wall[$name]=$(cut -d' ' -f1 "$scratch/$name" | median)
    cpu[$name]=$(cut -d' ' -f2 "$scratch/$name" | median)
    printf "%-10s wall %7.3f s   cpu %7.3f s\n" "$name" "${wall[$name]}" "${cpu[$name]}"
done
for name in git-pipe vrnl-json vrnl; do
    awk -v n="$name" -v w="${wall[$name]}" -v gw="${wall[git]}" -v c="${cpu[$name]}" \
        -v gc="${cpu[git]}" \
        'BEGIN { printf "%-10s / git: wall %.2f, cpu %.2f\n", n, w / gw, c / gc }'
done
