# Installs the built tree into a scratch folder: what is there has its names and links, and programs can be built with it.
#
# install.sh CMAKE GENERATOR BUILD-FOLDER VERSION PKG-CONFIG WITH-PROGRAMS C-COMPILER C++-COMPILER [OPTION...]
set -eu

cmake=$1
generator=$2
build=$3
version=$4
pkgConfig=$5
withPrograms=$6
shift 6

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

echo "install"
"$cmake" --install "$build" --prefix "$prefix" >"$scratch/log" || { cat "$scratch/log"; exit 1; }

lib=$(dirname "$(dirname "$(find "$prefix" -name krvstats.pc)")")

expect() {
    if [ "$2" != "$3" ]; then
        echo "$1: '$2', not '$3'"
        exit 1
    fi
}

expect "headers" "$(cd "$prefix/include" && echo *)" "krvstats.h krvstats_ext.h"
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
    expect "programs" "$(cd "$prefix/bin" && echo *)" "krvgwsim krvstat"
    for program in krvgwsim krvstat; do
        echo "run the installed $program"
        LD_LIBRARY_PATH="$lib" "$prefix/bin/$program" --help >/dev/null
    done
fi

sh "$(dirname "$0")/consume.sh" "$prefix" "$version" "$cmake" "$generator" "$pkgConfig" "$@"
