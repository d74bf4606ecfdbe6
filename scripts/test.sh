#!/usr/bin/env bash
# Sets the machine up, builds and runs all tests.
#   scripts/test.sh           optimised build; benchmarks are built, too
#   scripts/test.sh --asan    with the address and undefined behaviour sanitizers
#   scripts/test.sh --tsan    with the thread sanitizer
# Further arguments go to ctest, for example -R api.
set -euo pipefail

preset=release
case ${1-} in
-h | --help)
    sed -n '2,6s/^# //p' "$0"
    exit 0
    ;;
--asan | --tsan)
    preset=${1#--}
    shift
    ;;
esac

# shellcheck source=scripts/setup.sh
. "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
need_to_test
configure_and_build "$preset"

# The thread sanitizer's shadow memory doesn't fit every random layout of the address space: run it in the fixed one.
fixed_layout=()
if [ "$preset" = tsan ] && setarch "$(uname -m)" -R true 2>/dev/null; then
    fixed_layout=(setarch "$(uname -m)" -R)
fi

say "Testing ($preset)"
"${fixed_layout[@]}" ctest --preset "$preset" --parallel "$(nproc)" --timeout 900 --no-tests=error "$@" | tee "build/$preset/ctest.log"
