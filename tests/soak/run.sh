#!/usr/bin/env bash
# The long runs behind "./dev soak", one after the other, and what they found:
#   run.sh BUILD_FOLDER OUTPUT_FOLDER MINUTES
# BUILD_FOLDER holds the trees asan, tsan and release. Tables, pictures and what was printed are left in
# OUTPUT_FOLDER. Ends with 0 only if nothing was wrong.
set -uo pipefail
build=$1 output=$2 minutes=$3
here=$(dirname "${BASH_SOURCE[0]}")
mkdir -p "$output"

# The sanitizer's memory layout does not survive the address randomisation of newer kernels.
fixed=()
if setarch -R true 2>/dev/null; then fixed=(setarch -R); fi

results=()
good=true

# Runs one of them, shows what it prints and keeps its verdict: part NAME COMMAND...
part() {
  local name=$1 begin=$SECONDS verdict=passed
  shift
  printf '== %s\n' "$name"
  # The library says on standard error when a program of the desktop is not there to be sent to.
  "$@" 2>&1 | grep -v --line-buffered '^sendto() failed$' | tee "$output/$name.txt" ||
    verdict=FAILED
  [[ $verdict == passed ]] || good=false
  results+=("$(printf '  %-8s %-7s %6d s' "$name" "$verdict" $((SECONDS - begin)))")
}

picture() {
  local name=$1 title=$2
  if ! gnuplot -c "$here/plot.gp" "$output/$name.dat" "$output/$name.svg" "$title"; then
    printf '%s.svg could not be drawn\n' "$name"
    good=false
  fi
}

rm -f "$output"/{native,wine}.{dat,svg}
part faults env ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1 \
  UBSAN_OPTIONS=print_stacktrace=1 "${fixed[@]}" "$build/asan/tests/faults/fault_sweep" --all
part stress env TSAN_OPTIONS=detect_deadlocks=1:second_deadlock_stack=1:halt_on_error=1 \
  "${fixed[@]}" "$build/tsan/tests/soak/corvalint-stress" --seconds $((minutes * 60))
part native "$build/release/tests/soak/corvalint-cycles" 20000 "$output/native.dat"
picture native "20000 attach/detach cycles, native"
part wine "$build/release/tests/soak/corvalint-wine-cycles" 1000 "$output/wine.dat"
picture wine "1000 attach/detach cycles of the DLL under Wine"

printf '== Soak\n'
printf '%s\n' "${results[@]}"
printf 'Tables and pictures are in %s\n' "$output"
$good
