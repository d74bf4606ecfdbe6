#!/usr/bin/env bash
# Feeds the readers of files with mutated ones, under the address and undefined behaviour sanitizers.
#   scripts/fuzz.sh                      every target for 60 seconds, two at a time
#   scripts/fuzz.sh SECONDS [TARGET]     as long as wanted, all targets or one, for example: 3600 fuzz_ply
# What the runs found worth keeping stays in build/fuzz/corpus and is where the next run begins.
set -euo pipefail

case ${1-} in
-h | --help)
    sed -n '2,5s/^# //p' "$0"
    exit 0
    ;;
esac
seconds=${1:-60}
[[ $seconds =~ ^[1-9][0-9]*$ && $# -le 2 ]] || { echo "usage: scripts/fuzz.sh [SECONDS [TARGET]]" >&2; exit 2; }

# shellcheck source=scripts/setup.sh
. "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
targets=()
for source in fuzz/fuzz_*.cpp; do
    name=$(basename "$source" .cpp)
    [ "${2-$name}" != "$name" ] || targets+=("$name")
done
[ ${#targets[@]} -gt 0 ] || die "There is no target $2."

need_to_build
need clang++=clang libclang_rt.fuzzer-x86_64.a=libclang-rt-dev llvm-symbolizer=llvm
configure_and_build fuzz
build/fuzz/fuzz/make_seeds build/fuzz/seeds

run_target() {
    local name=$1 corpus=build/fuzz/corpus/$1 options=()
    mkdir -p "$corpus" build/fuzz/findings
    case $name in fuzz_ply*) options+=(-dict=fuzz/ply.dict) ;; esac
    # A freed block waits less long than by default: the limit of memory is meant for what is in use.
    ASAN_OPTIONS=quarantine_size_mb=16 "build/fuzz/fuzz/$name" -max_total_time="$seconds" -max_len=2000 -timeout=20 \
        -rss_limit_mb=512 -malloc_limit_mb=128 -print_final_stats=1 -artifact_prefix="build/fuzz/findings/$name-" \
        "${options[@]}" "$corpus" "build/fuzz/seeds/$name" >"build/fuzz/$name.log" 2>&1
}

say "Fuzzing for $seconds s each: ${targets[*]}"
at_once=$(($(nproc) > 1 ? 2 : 1))
declare -A running=()
failed=()
finish_one() {
    local name=${running[$1]} log executions edges
    unset "running[$1]"
    log=build/fuzz/$name.log
    if ! wait "$1"; then
        failed+=("$name")
        grep -vE '^#[0-9]+\s' "$log" | tail -60 >&2 || true
    fi
    executions=$(sed -n 's/^stat::number_of_executed_units: //p' "$log" || true)
    edges=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -c6- || true)
    printf '%-18s %12s executions %6s edges\n' "$name" "${executions:-?}" "${edges:-?}"
}
oldest() { printf '%s\n' "${!running[@]}" | sort -n | head -1; }

for name in "${targets[@]}"; do
    [ ${#running[@]} -lt "$at_once" ] || finish_one "$(oldest)"
    run_target "$name" &
    running[$!]=$name
done
while [ ${#running[@]} -gt 0 ]; do finish_one "$(oldest)"; done

if [ ${#failed[@]} -gt 0 ]; then
    for name in "${failed[@]}"; do
        reproducer=$(sed -n 's/.*Test unit written to //p' "build/fuzz/$name.log" | tail -1)
        echo "FOUND by $name: ${reproducer:-no input was kept, see build/fuzz/$name.log}"
    done
    exit 1
fi
