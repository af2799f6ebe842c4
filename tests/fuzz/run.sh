#!/usr/bin/env bash
# Runs every fuzz target of a tree at once for some minutes, or shows what the corpora cover.
#   run.sh fuzz TREE MINUTES       exit code 1 when something was found
#   run.sh coverage TREE FUZZTREE  TREE is built with clang's coverage
# Corpora grow in TREE/corpus, findings are kept in TREE/findings. The committed corpora are only
# read.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)

# Longest inputs: short ones find as much and run faster.
declare -A longest=([packet]=512 [config]=160 [host]=192 [stream]=2048 [devices]=600 [usb]=200)
# The conversations are worth the time to choose among inputs; elsewhere it is better spent on runs.
declare -A entropic=([stream]=1 [devices]=1 [usb]=1)

targets() {
  local source
  for source in "$here"/*_fuzz.cpp; do basename "$source" _fuzz.cpp; done
}

# The number that stands behind a word in a log, 0 without one.
number() { sed -n "s/.*$2:* *\([0-9]*\).*/\1/p" "$1" | tail -n 1 | grep . || echo 0; }

# One fuzzer of a target; its number is in the name of its log. Its patience is the clock's and not
# the processor's, so it is large: on a busy machine a target may wait for its turn.
work() {
  local tree=$1 target=$2 worker=$3 seconds=$4
  "$tree/tests/fuzz/fuzz_$target" -max_total_time="$seconds" -print_final_stats=1 -reload=1 \
    -timeout=600 -report_slow_units=600 -rss_limit_mb=2048 -entropic="${entropic[$target]:-0}" \
    -max_len="${longest[$target]:-4096}" -dict="$here/osc.dict" \
    -artifact_prefix="$tree/findings/$target/" "$tree/corpus/$target" "$here/corpus/$target" \
    >"$tree/log/$target.$worker" 2>&1 || true
}

# What was found before and does no harm any more is forgotten.
forgetMended() {
  local tree=$1 target=$2 finding
  for finding in "$tree/findings/$target"/*; do
    if "$tree/tests/fuzz/fuzz_$target" -timeout=600 "$finding" >/dev/null 2>&1; then
      rm "$finding"
    fi
  done
}

report() {
  local tree=$1 target=$2 seconds=$3 log runs=0 finding status=0
  for log in "$tree/log/$target".*; do
    runs=$((runs + $(number "$log" stat::number_of_executed_units)))
    # One that ended without its last lines did not come to its end.
    grep -q stat::number_of_executed_units "$log" || status=1
  done
  local findings=("$tree/findings/$target"/*)
  printf '%-8s %12d %8d %7d %9d\n' "$target" "$runs" $((runs / seconds)) \
    "$(find "$tree/corpus/$target" -type f | wc -l)" "${#findings[@]}"
  for finding in "${findings[@]}"; do
    status=1
    printf '  found by %s, replay: %s %s\n' "$target" "$tree/tests/fuzz/fuzz_$target" "$finding"
  done
  [[ $status -eq 0 || ${#findings[@]} -gt 0 ]] ||
    printf '  %s ended early, see %s\n' "$target" "$tree/log/$target.*"
  total=$((total + runs))
  return $status
}

fuzz() {
  local tree=$1 minutes=$2 target worker workers failed=0
  local seconds=$((minutes * 60)) names
  mapfile -t names < <(targets)
  workers=$(($(nproc) / ${#names[@]}))
  [[ $workers -ge 1 ]] || workers=1
  shopt -s nullglob
  trap 'kill $(jobs -p) 2>/dev/null || true' INT TERM
  rm -rf "$tree/log"
  mkdir -p "$tree/log"
  for target in "${names[@]}"; do
    mkdir -p "$tree/corpus/$target" "$tree/findings/$target"
    forgetMended "$tree" "$target"
    for ((worker = 1; worker <= workers; ++worker)); do
      work "$tree" "$target" "$worker" "$seconds" &
    done
  done
  wait
  total=0
  printf '%-8s %12s %8s %7s %9s\n' target executions 'a second' corpus findings
  for target in "${names[@]}"; do report "$tree" "$target" "$seconds" || failed=1; done
  printf '%-8s %12d\n' total "$total"
  return $failed
}

coverage() {
  local tree=$1 fuzzTree=$2 target objects=()
  shopt -s nullglob
  rm -f "$tree"/*.profraw
  for target in $(targets); do
    local program=$tree/tests/fuzz/replay_$target folders=("$here/corpus/$target")
    [[ ! -d $fuzzTree/corpus/$target ]] || folders+=("$fuzzTree/corpus/$target")
    LLVM_PROFILE_FILE=$tree/$target.profraw "$program" "${folders[@]}" >/dev/null 2>"$tree/$target.log" ||
      { tail -n 3 "$tree/$target.log" >&2 && return 1; }
    objects+=(-object "$program")
  done
  llvm-profdata merge -o "$tree/all.profdata" "$tree"/*.profraw
  # The first program stands alone, the others behind -object. Lines and missed lines are the eighth
  # and ninth column.
  llvm-cov report "${objects[@]:1}" -instr-profile "$tree/all.profdata" "$root/src" \
    2>"$tree/report.log" |
    awk 'NF == 13 && $1 != "Filename" {
           printf "%-40s %6d lines %6d reached %7s\n", $1, $8, $8 - $9, $10 }'
}

"$@"
