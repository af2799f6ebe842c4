#!/usr/bin/env bash
# Runs everything behind "./dev bench" and judges it:
#   run.sh BUILD_FOLDER OUTPUT_FOLDER [--json] [--check] [--store]
# BUILD_FOLDER holds the trees release and windows. Progress goes to standard error; the table, or
# with --json one document, to standard output. WINEPREFIX is a prepared prefix.
set -euo pipefail
build=$1 output=$2
shift 2
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
programs=$build/release/tests/bench

json=false store=false judgement=()
for argument in "$@"; do
  case $argument in
    --json) json=true ;;
    --store) store=true judgement+=(--store) ;;
    --check) judgement+=(--check) ;;
    *)
      printf 'bench: unknown argument %s\n' "$argument" >&2
      exit 2
      ;;
  esac
done

rm -rf "$output"
mkdir -p "$output"
results=$output/results.jsonl
progress() { printf '== %s\n' "$*" >&2; }

about() {
  local changed=""
  [[ -z $(git -C "$root" status --porcelain -- src) ]] || changed=" and changes"
  python3 - "$output/about.json" <<END
import json, sys
json.dump({
  "machine": """$(lscpu | sed -n 's/^Model name: *//p' | head -n 1), $(nproc) processors""",
  "kernel": """$(uname -sr)""",
  "compiler": """$("${CXX:-g++}" --version | head -n 1), $(wine --version)""",
  "commit": """$(git -C "$root" rev-parse --short HEAD)$changed""",
  "load before": """$(cut -d ' ' -f 1-3 /proc/loadavg)""",
  "date": """$(date -u '+%F %H:%M UTC')""",
}, open(sys.argv[1], "w"), indent=1)
END
}

# The DLL beside the program that loads it, in a folder of its own; each run is a process of its
# own, since the DLL stays where it is loaded. The first one starts Wine and does not count.
loadTimes() {
  local folder=$output/load run line load=() start=()
  mkdir -p "$folder"
  cp "$build/windows/corvalint_wrapper.dll" "$build/windows/tests/bench/corvalint-bench-load.exe" \
    "$folder"
  for run in {0..20}; do
    line=$(cd "$folder" && wine corvalint-bench-load.exe 2>&1 >/dev/null | tr -d '\r' | tail -n 1)
    [[ $line =~ ^([0-9.]+)\ ([0-9.]+)$ ]] || {
      printf 'bench: the DLL could not be loaded: %s\n' "$line" >&2
      return 1
    }
    ((run > 0)) || continue
    load+=("${BASH_REMATCH[1]}")
    start+=("${BASH_REMATCH[2]}")
  done
  local IFS=,
  printf '{"measure": "DLL: LoadLibrary, under Wine", "unit": "us", "ours": [%s]}\n' "${load[*]}"
  printf '{"measure": "DLL: LoadLibrary to the return of the start, under Wine", "unit": "us", '
  printf '"ours": [%s]}\n' "${start[*]}"
  rm -rf "$folder"
}

about
progress "Parts"
"$programs/corvalint-bench-parts" --benchmark_repetitions=9 --benchmark_min_time=0.02 \
  --benchmark_enable_random_interleaving=true --benchmark_format=json \
  >"$output/parts.json" 2>/dev/null
for group in receiving input scale latency memory; do
  progress "Ways: $group"
  "$programs/corvalint-bench-ways" "$group" >>"$results"
done
progress "The DLL under Wine"
printf '{"measure": "DLL, stripped", "unit": "bytes", "ours": [%d], "limit": [1500000]}\n' \
  "$(stat -c %s "$build/windows/corvalint_wrapper.dll")" >>"$results"
loadTimes >>"$results"
"$programs/corvalint-bench-wine" >>"$results"
timeout 30 wineserver -w || true # its last programs would share the minute
progress "A minute of rest"
"$programs/corvalint-bench-ways" idle >>"$results"

status=0
python3 -B "$here/judge.py" "$results" --parts "$output/parts.json" --goals "$here/goals.json" \
  --about "$output/about.json" --table "$output/table.txt" --document "$output/results.json" \
  --curves "$output/latency.dat" --ratios "$here/ratios.json" \
  --page "$root/docs/performance.md" "${judgement[@]}" || status=$?
gnuplot -c "$here/plot.gp" "$output/latency.dat" "$output/latency.svg"
! $store || cp "$output/latency.svg" "$root/docs/latency.svg"
if $json; then cat "$output/results.json"; else cat "$output/table.txt"; fi
exit "$status"
