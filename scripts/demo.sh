#!/usr/bin/env bash
# From nothing to a mesh: sets the machine up, builds, and reconstructs a surface from points.
#   scripts/demo.sh               a made-up scan of a torus
#   scripts/demo.sh my_scan.ply   your own points (.ply, .xyz, .txt, .asc or .bin)
set -euo pipefail

case ${1-} in
-h | --help)
    sed -n '2,4s/^# //p' "$0"
    exit 0
    ;;
esac
[ $# -le 1 ] || { echo "usage: scripts/demo.sh [FILE_WITH_POINTS]" >&2; exit 2; }
input=
options=(--timings --holes 10)
if [ $# -eq 1 ]; then
    [ -r "$1" ] || { echo "$1 can't be read." >&2; exit 1; }
    input=$(realpath -- "$1")
fi

# shellcheck source=scripts/setup.sh
. "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
need_to_test # what the tests need, too: the machine is ready for both scripts
configure_and_build release zav_tool
zav=build/release/app/zav

mkdir -p build/demo
if [ -z "$input" ]; then
    say "Making points as a scanner would see a torus from eight sides, with a gap"
    input=build/demo/torus_scan.ply
    "$zav" generate torus "$input" --points 200000 --views 8 --noise 0.2 --gap 8
fi
name=$(basename "$input")
mesh=build/demo/${name%.*}_mesh.ply

say "The points"
"$zav" info "$input"
say "Reconstructing"
"$zav" reconstruct "$input" "$mesh" "${options[@]}"
say "The mesh"
"$zav" info "$mesh"
say "It is in $PWD/$mesh"
