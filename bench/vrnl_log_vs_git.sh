#!/usr/bin/env bash
# What `vrnl log` costs next to the `git log` it runs, on a large repository.
#
#   bench/vrnl_log_vs_git.sh [VRNL] [RUNS]
#
# The repository is $VARNEL_GIT_GIT_REPO (a clone of git.git by default at
# /work/benchrepos/git); it is only read. The exact git command line vrnl runs for the whole
# history is taken from vrnl itself (through strace), so the comparison is with the same work.
# Each command runs RUNS times (3 by default) writing to /dev/null; the median wall-clock time,
# CPU time (user + system) and the peak resident memory of the largest run are printed, with the
# wall-clock ratio to the whole git log. "cold" runs first drop the repository's files from the
# page cache (posix_fadvise, nothing else is touched); "fresh" runs start with an empty vrnl
# cache folder, "kept" ones with the graph states an earlier run left there.
# SKIP_SLOW=1 leaves out the 100,000-row JSON listing (minutes with older builds).
set -euo pipefail

vrnl="${1:-$(dirname "$0")/../build/release/bin/vrnl}"
runs="${2:-3}"
repo="${VARNEL_GIT_GIT_REPO:-/work/benchrepos/git}"
[ -x "$vrnl" ] || { echo "no vrnl at $vrnl" >&2; exit 1; }
vrnl="$(cd "$(dirname "$vrnl")" && pwd)/$(basename "$vrnl")"
command -v strace > /dev/null || { echo "needs strace" >&2; exit 1; }
[ -x /usr/bin/time ] || { echo "needs /usr/bin/time (package time)" >&2; exit 1; }

scratch="$(mktemp -d "${TMPDIR:-/tmp}/varnel-log-bench.XXXXXX")"
trap 'rm -rf "$scratch"' EXIT
export HOME="$scratch/home" XDG_CONFIG_HOME="$scratch/config" XDG_DATA_HOME="$scratch/data"
export XDG_CACHE_HOME="$scratch/cache" GIT_CONFIG_NOSYSTEM=1
mkdir -p "$HOME" "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME"
cd "$repo"

# The argument vector of the `git log` that vrnl starts for the whole history, NUL-separated
# (builds that take no limit of 0 are given a limit above any history, then left without it).
strace -f -qq -e trace=execve -s 65536 -o "$scratch/trace" "$vrnl" log --limit 0 > /dev/null \
    2>&1 || strace -f -qq -e trace=execve -s 65536 -o "$scratch/trace" "$vrnl" log \
    --limit 1000000000 > /dev/null 2>&1 || true
python3 - "$scratch/trace" > "$scratch/gitlog.args" <<'EOF'
import ast, re, sys
for line in open(sys.argv[1], encoding="latin-1"):
    m = re.search(r'execve\("([^"]*)", \[(.*)\], 0x', line)
    if not m or not m.group(1).endswith("git") or '"log"' not in m.group(2):
        continue
    words = re.findall(r'"((?:[^"\\]|\\.)*)"', m.group(2))
    out = []
    for w in words:
        raw = ast.literal_eval('b"' + w + '"')
        if not raw.startswith(b"--max-count="):
            out.append(raw)
    sys.stdout.buffer.write(b"\0".join(out[1:]) + b"\0")
    break
EOF
mapfile -d '' git_args < "$scratch/gitlog.args"
[ "${#git_args[@]}" -gt 3 ] || { echo "could not read the git log command line" >&2; exit 1; }
# The same listing cut to its first 1,000 rows.
git_args_1000=()
for word in "${git_args[@]}"; do
    git_args_1000+=("$word")
    [ "$word" = log ] && git_args_1000+=("--max-count=1000")
done

evict() {
    python3 - "$repo" <<'EOF'
import os, sys
for root, dirs, files in os.walk(os.path.join(sys.argv[1], ".git")):
    for name in files:
        try:
            fd = os.open(os.path.join(root, name), os.O_RDONLY)
        except OSError:
            continue
        try:
            os.posix_fadvise(fd, 0, 0, os.POSIX_FADV_DONTNEED)
        finally:
            os.close(fd)
EOF
}

median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

base_wall=""
# run NAME MODE COMMAND...: MODE is a comma list of cold (evict first), fresh (empty cache
# folder before each run) and kept (cache folder left from the previous run of the row).
run() {
    local name="$1" mode="$2"
    shift 2
    : > "$scratch/times"
    local status=0
    for _ in $(seq "$runs"); do
        [[ $mode == *fresh* ]] && rm -rf "$XDG_CACHE_HOME" && mkdir -p "$XDG_CACHE_HOME"
        [[ $mode == *cold* ]] && evict
        if ! /usr/bin/time -f "%e %U %S %M" -o "$scratch/time" "$@" > /dev/null 2>&1; then
            status=1
        fi
        cat "$scratch/time" >> "$scratch/times"
    done
    if [ "$status" != 0 ]; then
        printf "%-48s fails\n" "$name"
        return
    fi
    local wall cpu rss
    wall=$(awk '{ print $1 }' "$scratch/times" | median)
    cpu=$(awk '{ print $2 + $3 }' "$scratch/times" | median)
    rss=$(awk '{ if ($4 > m) m = $4 } END { print m }' "$scratch/times")
    [ -z "$base_wall" ] && base_wall="$wall"
    printf "%-48s %7.3f s wall %7.3f s cpu %7.0f MB %6.2fx git log\n" "$name" "$wall" "$cpu" \
        "$((rss / 1024))" "$(awk -v a="$wall" -v b="$base_wall" 'BEGIN { print a / b }')"
}

size() { "$@" 2> /dev/null | wc -c | awk '{ printf "%.1f MB", $1 / 1e6 }'; }

rows=$(git rev-list --count --branches --tags HEAD)
echo "$repo: $rows commits; $runs runs each; vrnl $vrnl"
echo "git log output $(size git "${git_args[@]}"), first 1000 rows $(size git "${git_args_1000[@]}")"
run "git log (the listing vrnl runs), whole" "" git "${git_args[@]}"
run "git log, whole, cold" cold git "${git_args[@]}"
run "git log -n 1000" "" git "${git_args_1000[@]}"
run "git log --graph --oneline --branches --tags" "" git log --graph --oneline --branches --tags
run "vrnl log --graph --limit 0" "" "$vrnl" log --graph --limit 0
run "vrnl log --graph --limit 0, cold" cold "$vrnl" log --graph --limit 0
run "vrnl log --limit 100000" "" "$vrnl" log --limit 100000
run "vrnl log --graph --limit 100000" "" "$vrnl" log --graph --limit 100000
if [ -z "${SKIP_SLOW:-}" ]; then
    run "vrnl log --json --limit 100000" "" "$vrnl" log --json --limit 100000
fi
run "vrnl log --limit 100 --skip 80000" "" "$vrnl" log --limit 100 --skip 80000
run "vrnl log --graph --limit 100 --skip 80000, fresh" fresh "$vrnl" log --graph --limit 100 \
    --skip 80000
run "vrnl log --graph ... --skip 80000, fresh, cold" fresh,cold "$vrnl" log --graph --limit 100 \
    --skip 80000
run "vrnl log --graph ... --skip 80000, kept" kept "$vrnl" log --graph --limit 100 --skip 80000
run "vrnl log --graph ... --skip 80000, kept, cold" kept,cold "$vrnl" log --graph --limit 100 \
    --skip 80000
run "vrnl log --json --limit 1000" "" "$vrnl" log --json --limit 1000
run "vrnl log --json --graph --limit 1000" "" "$vrnl" log --json --graph --limit 1000
echo "sizes: --graph --limit 0 $(size "$vrnl" log --graph --limit 0)," \
    "--json --limit 1000 $(size "$vrnl" log --json --limit 1000)," \
    "--json --graph --limit 1000 $(size "$vrnl" log --json --graph --limit 1000)," \
    "--json --limit 100000 $(size "$vrnl" log --json --limit 100000)"
# The first page against the git log it waits for, run in turns so that both see the same
# machine, and timed to the microsecond (the clock of /usr/bin/time above counts hundredths).
python3 - "$runs" "$vrnl" "${git_args_1000[@]}" <<'EOF'
import os, statistics, subprocess, sys, time
runs, vrnl, git = max(int(sys.argv[1]) * 4, 30), sys.argv[2], ["git"] + sys.argv[3:]
# Git buffers its output whole, as it does when vrnl runs it.
unflushed = dict(os.environ, GIT_FLUSH="0")
def timed(command, env=None):
    start = time.perf_counter()
    subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True,
                   env=env)
    return time.perf_counter() - start
for name, command in [("--json --graph --limit 1000", [vrnl, "log", "--json", "--graph",
                                                        "--limit", "1000"]),
                      ("--json --limit 1000", [vrnl, "log", "--json", "--limit", "1000"]),
                      ("--limit 1000", [vrnl, "log", "--limit", "1000"])]:
    pairs = [(timed(git, unflushed), timed(command)) for _ in range(runs)]
    base = statistics.median(p[0] for p in pairs)
    page = statistics.median(p[1] for p in pairs)
    ratio = statistics.median(p[1] / p[0] for p in pairs)
    print(f"{name} against git log -n 1000, {runs} turns: {page * 1e3:.1f} ms against "
          f"{base * 1e3:.1f} ms, {page / base:.2f}x (median of the turns' ratios {ratio:.2f}x)")
EOF
