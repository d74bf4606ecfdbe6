#!/usr/bin/env bash
# Installs the build into an empty directory, looks at what the library exports and at its headers, builds the examples
# against it as a user would, and runs them.
# Arguments: build directory, directory of the examples, cmake, C++ compiler, 1 if the tool was built.
set -euo pipefail
build=$1 examples=$2 cmake=$3 compiler=$4 has_tool=$5

place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

"$cmake" --install "$build" --prefix "$place/first" >/dev/null
mv "$place/first" "$place/installed" # an installed tree can be moved

echo "what the shared library exports"
lib=$(find "$place/installed" -name 'libzav.so.1')
[ -n "$lib" ] || { echo "libzav.so.1 isn't installed"; exit 1; }
nm -DC --defined-only "$lib" | sed 's/^[0-9a-f]* . //; s/(.*//' | LC_ALL=C sort -u |
    diff "$(dirname "${BASH_SOURCE[0]}")/exported_symbols.txt" -
readelf -d "$lib" | grep -q 'SONAME.*\[libzav\.so\.1\]' || { echo "$lib has another SONAME"; exit 1; }

echo "each public header by itself, C++17"
headers=$(find "$place/installed" -path '*/include/zav')
for header in "$headers"/*.h; do
    echo "#include <$(basename "$header")>" |
        "$compiler" -std=c++17 -Wall -Wextra -Wpedantic -Wshadow -Werror -fsyntax-only -I "$headers" -x c++ -
done

# A small grid of points, one unit apart: a flat square of cells.
for x in $(seq 0 29); do for y in $(seq 0 29); do echo "$x $y 0"; done; done >"$place/square.xyz"

check_mesh() {
    head -c 3 "$1" | grep -q '^ply' || { echo "$1 is no mesh"; exit 1; }
}

echo "find_package, C++17"
"$cmake" -S "$examples" -B "$place/examples" -DCMAKE_PREFIX_PATH="$place/installed" -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Wshadow -Werror" >/dev/null
"$cmake" --build "$place/examples"
for example in cloud_to_mesh points_to_mesh; do
    "$place/examples/$example" "$place/square.xyz" "$place/$example.ply"
    check_mesh "$place/$example.ply"
done

if command -v pkg-config >/dev/null; then
    echo "pkg-config"
    pc_dir=$(dirname "$(find "$place/installed" -name zav.pc)")
    flags=$(PKG_CONFIG_PATH=$pc_dir pkg-config --cflags --libs zav)
    lib_dir=$(PKG_CONFIG_PATH=$pc_dir pkg-config --variable=libdir zav)
    # shellcheck disable=SC2086 # the flags are several words
    "$compiler" -std=c++17 "$examples/points_to_mesh.cpp" -o "$place/by_pkg_config" $flags "-Wl,-rpath,$lib_dir"
    "$place/by_pkg_config" "$place/square.xyz" "$place/by_pkg_config.ply"
    check_mesh "$place/by_pkg_config.ply"
else
    echo "pkg-config isn't installed: its file is not checked"
fi

if [ "$has_tool" = 1 ]; then
    echo "the installed tool"
    "$place/installed/bin/zav" reconstruct --quiet "$place/square.xyz" "$place/by_tool.ply"
    check_mesh "$place/by_tool.ply"
fi
