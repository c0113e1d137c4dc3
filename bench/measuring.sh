# Shared by the scripts that compare: what runs under what, and how it is timed. Sourced, after the
# build; in a scratch directory, where every run may leave its files.

tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
library=$tree/build/release/libtuk_mem.so
malloc_library=$tree/build/release/libtuk_mem_malloc.so
command=$tree/build/release/tuk-mem
symbol_server=$tree/build/release/tuk-mem-symbols
churn=$tree/build/release/bench/churn
growth=$tree/build/release/bench/growth
bare_report=$tree/build/release/bench/bare_report

# Of the caller's environment nothing passes that might switch a profiler on.
preloading() { env -i PATH="$PATH" HOME="$PWD" LD_PRELOAD="$1" "${@:2}"; }
on_tcmalloc() { preloading libtcmalloc.so.4 "$@"; }
on_library() { preloading "libtcmalloc.so.4 $library" "$@"; }
per_line() { on_library KORVANE_MEM_PROFILE_PER_FILELINE=1 "$@"; }
call_paths() { per_line KORVANE_MEM_PROFILE_CALL_PATHS=1 "$@"; }
over_glibc() { preloading "$library $malloc_library" "$@"; }
per_bin() { on_library KORVANE_MEM_PROFILE_PER_BIN=1 "$@"; }
on_heaptrack() { preloading "" heaptrack -o heaptrack "$@"; }

give_up() {
  cat log >&2
  echo "compare: $1 failed" >&2
  exit 1
}

# Runs one configuration, a function "run_NAME", and appends "wall cpu", in seconds, to "times.NAME".
# The times of children that were waited for are in: a profiler's helper processes count.
measure() {
  local TIMEFORMAT='%3R %3U %3S'
  { time "run_$1" >log 2>&1; } 2>clock || give_up "$1"
  ! grep -E 'cannot be preloaded|Invalid conf' log >&2 || exit 1
  awk '{ print $1, $2 + $3 }' clock >>"times.$1"
  drop_reports
}

drop_reports() {
  find . -maxdepth 1 \( -name 'mem_tbb*' -o -name 'heaptrack*' -o -name 'profile*' \) -delete
  rm -rf tuk-mem.*
}

# All configurations in turn, so that a slow minute of the machine meets every one.
alternate() { # runs configuration...
  local run configuration
  for ((run = 1; run <= $1; ++run)); do
    for configuration in "${@:2}"; do
      echo "run $run of $1: $configuration" >&2
      measure "$configuration"
    done
  done
}

# Of the numbers in one column of the input.
median_of_column() {
  sort -g -k "$1,$1" | awk -v column="$1" '{ value[NR] = $column }
    END { print (value[int((NR + 1) / 2)] + value[int(NR / 2) + 1]) / 2 }'
}

median() { # configuration wall|cpu
  case $2 in
    wall) median_of_column 1 <"times.$1" ;;
    cpu) median_of_column 2 <"times.$1" ;;
  esac
}

# Runs a configuration once and prints "name kB" for each of its processes' names: the largest
# amount of memory that one of them had resident. Looked at ten times a second.
peaks() {
  "run_$1" >log 2>&1 &
  local root=$!
  while kill -0 "$root" 2>/dev/null; do
    for process in $(descendants "$root"); do
      awk '/^Name:/ { name = $2 } /^VmHWM:/ { print name, $2 }' "/proc/$process/status" 2>/dev/null || true
    done
    sleep 0.1
  done | awk '$2 > peak[$1] { peak[$1] = $2 } END { for (name in peak) print name, peak[name] }'
  wait "$root" || give_up "$1"
  drop_reports
}

descendants() {
  ps -e -o pid=,ppid= | awk -v root="$1" '{ parent[$1] = $2 } END {
    for (process in parent) {
      for (above = process; above != root && above in parent; above = parent[above]);
      if (above == root) print process
    }
  }'
}
