#!/bin/sh
# Plants each bug that the fuzz targets have to find, and sees that it changes the library and compiles: scripts/fuzz
# --self-test is run too rarely to notice soon that one does not fit any more.
#
# compile.sh SOURCES SCRATCH COMPILER [FLAG...]
set -eu
sources=$1
scratch=$2
shift 2

rm -rf "$scratch"
mkdir -p "$scratch"
failed=0
planted=0
for bug in "$sources"/fuzz/planted/*.sed; do
    file=$(sed -n '1s/^# //p' "$bug")
    changed=$scratch/$(basename "$file")
    sed -f "$bug" "$sources/$file" >"$changed"
    if cmp -s "$sources/$file" "$changed"; then
        echo "$bug does not change $file"
        failed=1
    elif ! "$@" -I"$sources/source/h" -fsyntax-only "$changed"; then
        echo "$bug does not compile"
        failed=1
    fi
    planted=$((planted + 1))
done
targets=$(find "$sources/fuzz" -maxdepth 1 -name '*_fuzz.cpp' | wc -l)
if [ "$planted" -ne "$targets" ]; then
    echo "$planted planted bugs for $targets targets"
    failed=1
fi
exit $failed
