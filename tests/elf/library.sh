# The shared library names itself, needs libc alone, and may be mapped without a writable or executable surprise.
#
# library.sh READELF LIBRARY SONAME HARDENED
set -eu

readelf=$1
library=$2
soname=$3
hardened=$4

dynamic=$("$readelf" -dW "$library")
segments=$("$readelf" -lW "$library")
failed=0

fail() {
    echo "$1"
    failed=1
}

named=$(echo "$dynamic" | sed -n 's/.*(SONAME).*\[\(.*\)\].*/\1/p')
if [ "$named" != "$soname" ]; then fail "SONAME is '$named', not '$soname'"; fi

needed=$(echo "$dynamic" | sed -n 's/.*(NEEDED).*\[\(.*\)\].*/\1/p' | tr '\n' ' ')
if [ "$needed" != "libc.so.6 " ]; then fail "it needs '$needed', not libc.so.6 alone"; fi

if echo "$dynamic" | grep -q TEXTREL; then fail "it has text relocations"; fi
if echo "$dynamic" | grep -Eq '\((RPATH|RUNPATH)\)'; then fail "it has a run path"; fi

stack=$(echo "$segments" | awk '$1 == "GNU_STACK" { for (i = 7; i < NF; i++) printf "%s", $i }')
if [ "$stack" != "RW" ]; then fail "its stack is '$stack', not RW"; fi
if echo "$segments" | awk '$1 == "LOAD"' | grep -q 'RWE'; then fail "a segment is writable and executable"; fi

if [ "$hardened" = 1 ]; then
    if ! echo "$segments" | grep -q GNU_RELRO; then fail "its relocations stay writable"; fi
    if ! echo "$dynamic" | grep -Eq 'BIND_NOW|FLAGS_1.*NOW'; then fail "it is bound lazily"; fi
fi

exit $failed
