#!/usr/bin/env bash
# Runs every libFuzzer binary (*_fuzzer) found in BIN_DIR for SECONDS each, one after the other, on a
# copy of its seed corpus fuzz/corpus/<name without _fuzzer>/ (the checked-in seeds are never
# modified). Prints executions and coverage per target and exits non-zero when any target found
# something (crash, leak, time-out, out-of-memory) or could not be run. Builds nothing.
#
#   fuzz/run.sh BIN_DIR [SECONDS=60] [WORK_DIR]
#
# WORK_DIR (default: a new temporary directory) receives the corpus copies, one log per target and the
# reproducers of findings (crash-*, leak-*, timeout-*, oom-*). It is removed afterwards when nothing
# was found and it was not given; otherwise it is kept and named.
# Environment: FUZZ_TIMEOUT (seconds one input may take, default 25), FUZZ_RSS_MB (default 2048).
set -u

usage() {
  echo "usage: $0 BIN_DIR [SECONDS] [WORK_DIR]" >&2
  exit 2
}

[ $# -ge 1 ] && [ $# -le 3 ] || usage
bin_dir=$1
seconds=${2:-60}
case $seconds in '' | *[!0-9]*) usage ;; esac
[ "$seconds" -gt 0 ] || usage
corpus_root=$(cd "$(dirname "$0")" && pwd)/corpus

shopt -s nullglob
fuzzers=("$bin_dir"/*_fuzzer)
if [ ${#fuzzers[@]} -eq 0 ]; then
  echo "fuzz: no *_fuzzer binaries in $bin_dir (build the 'fuzzers' target of a VSTAT_FUZZ=ON build)" >&2
  exit 2
fi

if [ $# -ge 3 ]; then
  work=$3
  keep_work=1
  mkdir -p "$work" || exit 2
else
  work=$(mktemp -d "${TMPDIR:-/tmp}/vstat_fuzz_run.XXXXXX") || exit 2
  keep_work=0
fi

passed=0
failed=0
for fuzzer in "${fuzzers[@]}"; do
  [ -x "$fuzzer" ] || continue
  name=$(basename "$fuzzer" _fuzzer)
  corpus=$work/$name.corpus
  log=$work/$name.log
  rm -rf "$corpus"
  mkdir -p "$corpus"
  if [ -d "$corpus_root/$name" ]; then
    cp -p "$corpus_root/$name"/* "$corpus"/ 2>/dev/null
  else
    echo "fuzz: $name has no seed corpus in $corpus_root/$name; starting empty" >&2
  fi
  # The outer limit only catches a target stuck outside any single input (libFuzzer's own time-out
  # covers those); it never cuts a healthy run short.
  timeout --kill-after=10 $((seconds + 120)) "$fuzzer" \
    -max_total_time="$seconds" -timeout="${FUZZ_TIMEOUT:-25}" -rss_limit_mb="${FUZZ_RSS_MB:-2048}" \
    -print_final_stats=1 -artifact_prefix="$work/$name-" "$corpus" >"$log" 2>&1
  status=$?

  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  last=$(grep -E '^#[0-9]+.*cov: ' "$log" | tail -n 1)
  cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")
  ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")
  units=$(sed -n 's/.* corp: \([0-9]*\)\/.*/\1/p' <<<"$last")
  rate=$(sed -n 's/.* exec\/s: \([0-9]*\).*/\1/p' <<<"$last")
  if [ "$status" -eq 0 ]; then
    verdict=ok
    passed=$((passed + 1))
  else
    verdict="FINDING (exit $status, log $log)"
    failed=$((failed + 1))
  fi
  printf '%-20s %10s executions  cov %-6s ft %-7s corpus %-6s %8s exec/s  %s\n' \
    "$name" "${execs:-?}" "${cov:-?}" "${ft:-?}" "${units:-?}" "${rate:-?}" "$verdict"
  if [ "$status" -ne 0 ]; then
    grep -E '^(==[0-9]+==ERROR|SUMMARY|[a-z_]+_fuzzer: )' "$log" | head -n 5 | sed 's/^/    /'
    for artifact in "$work/$name"-*; do
      case $artifact in *.corpus | *.log) ;; *) echo "    reproducer: $artifact" ;; esac
    done
  fi
done

if [ "$failed" -eq 0 ] && [ "$keep_work" -eq 0 ]; then
  rm -rf "$work"
else
  echo "fuzz: logs and corpora in $work"
fi
echo "fuzz: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
