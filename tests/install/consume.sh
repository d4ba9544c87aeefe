# Builds and runs a program in C and one in C++ against an installed library: by pkg-config, and by find_package with the
# shared and with the static library.
#
# consume.sh PREFIX VERSION CMAKE GENERATOR PKG-CONFIG C-COMPILER C++-COMPILER [OPTION...]
set -eu

prefix=$1
version=$2
cmake=$3
generator=$4
pkgConfig=$5
c=$6
cpp=$7
shift 7
here=$(cd "$(dirname "$0")" && pwd)

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

pc=$(find "$prefix" -name krvstats.pc)
LD_LIBRARY_PATH=$(dirname "$(dirname "$pc")")
PKG_CONFIG_PATH=$(dirname "$pc")
export LD_LIBRARY_PATH PKG_CONFIG_PATH

expect() {
    if [ "$2" != "$3" ]; then
        echo "$1: '$2', not '$3'"
        exit 1
    fi
}

# runBuilt HOW LANGUAGE PROGRAM
runBuilt() {
    echo "run the program in $2 built $1"
    case $2 in
        c) expect "it printed" "$("$3")" "API 1_1_0_1, port 0 is refused with -107" ;;
        cpp) expect "it printed" "$("$3")" "API 1_1_0_1, port 0 is refused with -107, KRVSTAT_INVALID_PORT" ;;
    esac
}

expect "version of the package" "$("$pkgConfig" --modversion krvstats)" "$version"
flags=$("$pkgConfig" --cflags --libs krvstats)
warnings="-pedantic -Wall -Wextra -Werror"
# shellcheck disable=SC2086  # words
"$c" "$@" -std=c99 $warnings -o "$scratch/c" "$here/consumer.c" $flags
# shellcheck disable=SC2086
"$cpp" "$@" -std=c++17 $warnings -o "$scratch/cpp" "$here/consumer.cpp" $flags
for language in c cpp; do runBuilt "by pkg-config" $language "$scratch/$language"; done

"$cmake" -G "$generator" -S "$here/consumer" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_C_COMPILER="$c" -DCMAKE_C_FLAGS="$*" -DCMAKE_CXX_COMPILER="$cpp" -DCMAKE_CXX_FLAGS="$*" \
    -DWANTED_VERSION="$version" >"$scratch/log" 2>&1 || { cat "$scratch/log"; exit 1; }
"$cmake" --build "$scratch/build" >"$scratch/log" 2>&1 || { cat "$scratch/log"; exit 1; }
for language in c cpp; do
    runBuilt "by find_package, shared" $language "$scratch/build/${language}_krvstats"
    runBuilt "by find_package, static" $language "$scratch/build/${language}_krvstats_static"
done
