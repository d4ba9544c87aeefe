# Installs the built tree into a scratch folder, and builds and runs a program against it: by pkg-config, by
# find_package with the shared and with the static library.
#
# install.sh CMAKE GENERATOR BUILD-FOLDER SOURCE-FOLDER VERSION PKG-CONFIG WITH-PROGRAMS COMPILER [OPTION...]
set -eu

cmake=$1
generator=$2
build=$3
source=$4
version=$5
pkgConfig=$6
withPrograms=$7
shift 7
compiler=$1
here=$source/tests/install

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

echo "install"
"$cmake" --install "$build" --prefix "$prefix" >"$scratch/log" || { cat "$scratch/log"; exit 1; }

pc=$(find "$prefix" -name krvstats.pc)
lib=$(dirname "$(dirname "$pc")")

expect() {
    if [ "$2" != "$3" ]; then
        echo "$1: '$2', not '$3'"
        exit 1
    fi
}

expect "headers" "$(echo $(ls "$prefix/include"))" "krvstats.h krvstats_ext.h"
expect "development link" "$(readlink "$lib/libkrvstats.so")" "libkrvstats.so.1"
expect "link of the SONAME" "$(readlink "$lib/libkrvstats.so.1")" "libkrvstats.so.$version"
for file in libkrvstats.a "libkrvstats.so.$version" cmake/krvstats/krvstatsConfig.cmake \
    cmake/krvstats/krvstatsConfigVersion.cmake; do
    if [ ! -f "$lib/$file" ]; then
        echo "$file is not installed"
        exit 1
    fi
done
if [ "$withPrograms" = 1 ]; then
    expect "programs" "$(ls "$prefix/bin" | tr '\n' ' ')" "krvgwsim krvstat "
    for program in krvgwsim krvstat; do
        echo "run the installed $program"
        LD_LIBRARY_PATH="$lib" "$prefix/bin/$program" --help >/dev/null
    done
fi

run() {
    echo "run the program built $1"
    expect "it printed" "$(LD_LIBRARY_PATH="$lib" "$2")" "API 1_1_0_1, port 0 is refused with -107"
}

echo "build by pkg-config"
PKG_CONFIG_PATH=$(dirname "$pc")
export PKG_CONFIG_PATH
expect "version of the package" "$("$pkgConfig" --modversion krvstats)" "$version"
# shellcheck disable=SC2046  # the flags are words
"$@" -std=c99 -pedantic -Wall -Wextra -Werror -o "$scratch/by-pkg-config" "$here/consumer.c" \
    $("$pkgConfig" --cflags --libs krvstats)
run "by pkg-config" "$scratch/by-pkg-config"

echo "build by find_package"
shift
"$cmake" -G "$generator" -S "$here/consumer" -B "$scratch/build" -DCMAKE_C_COMPILER="$compiler" -DCMAKE_C_FLAGS="$*" \
    -DCMAKE_PREFIX_PATH="$prefix" -DWANTED_VERSION="$version" >"$scratch/log" 2>&1 || { cat "$scratch/log"; exit 1; }
"$cmake" --build "$scratch/build" >"$scratch/log" 2>&1 || { cat "$scratch/log"; exit 1; }
run "by find_package, shared" "$scratch/build/shared"
run "by find_package, static" "$scratch/build/static"
