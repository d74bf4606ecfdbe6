# Shared set-up of the scripts; sourced, not run. Goes to the project's root and offers:
#   need PROBE=PACKAGE ...   installs the packages of what is missing (see is_there); no network if all is there
#   configure_and_build PRESET [TARGET ...]
# shellcheck shell=bash

cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit

say() { printf '\n== %s\n' "$*"; }
die() {
    printf '%s\n' "$*" >&2
    exit 1
}

# A probe with a slash is a header below one of the usual include directories, one that ends in .a a library of clang's
# run time, any other one a program.
is_there() {
    case $1 in
    */*) [ -e "/usr/include/$1" ] || [ -e "/usr/local/include/$1" ] ;;
    *.a) [ -e "$(clang++ -print-file-name="$1" 2>/dev/null)" ] ;;
    *) command -v "$1" >/dev/null 2>&1 ;;
    esac
}

need() {
    local entry missing=() as_root=()
    for entry in "$@"; do
        is_there "${entry%%=*}" || missing+=("${entry#*=}")
    done
    [ ${#missing[@]} -gt 0 ] || return 0

    local how_to="These packages are missing: ${missing[*]}
Install them, for example with: apt-get install ${missing[*]}"
    command -v apt-get >/dev/null 2>&1 || die "$how_to"
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null 2>&1 || die "$how_to"
        as_root=(sudo)
        [ -t 0 ] || as_root=(sudo -n) # nobody there to type a password
    fi
    say "Installing ${missing[*]}"
    as_root+=(env DEBIAN_FRONTEND=noninteractive apt-get -q)
    "${as_root[@]}" update || die "$how_to"
    "${as_root[@]}" install -y --no-install-recommends "${missing[@]}" || die "$how_to"
    for entry in "$@"; do
        is_there "${entry%%=*}" || die "${entry#*=} is installed, but ${entry%%=*} is not to be found."
    done
}

need_to_build() {
    need cmake=cmake ninja=ninja-build g++=g++ CLI/CLI.hpp=libcli11-dev
    local version
    version=$(cmake --version | sed -n '1s/.* //p')
    printf '3.21\n%s\n' "$version" | sort -V -C || die "cmake 3.21 or newer is needed; this one is $version."
}

need_to_test() {
    need_to_build
    need gtest/gtest.h=libgtest-dev benchmark/benchmark.h=libbenchmark-dev pkg-config=pkg-config python3=python3
}

configure_and_build() {
    local preset=$1
    shift
    say "Building ($preset)"
    mkdir -p build
    cmake --preset "$preset" >"build/configure-$preset.log" 2>&1 || die "$(cat "build/configure-$preset.log")"
    cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"}
}
