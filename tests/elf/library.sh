# The shared library names itself and needs libc alone.
#
# library.sh READELF LIBRARY SONAME
set -eu

readelf=$1
library=$2
soname=$3

dynamic=$("$readelf" -dW "$library")
failed=0

fail() {
    echo "$1"
    failed=1
}

named=$(echo "$dynamic" | sed -n 's/.*(SONAME).*\[\(.*\)\].*/\1/p')
if [ "$named" != "$soname" ]; then fail "SONAME is '$named', not '$soname'"; fi

needed=$(echo "$dynamic" | sed -n 's/.*(NEEDED).*\[\(.*\)\].*/\1/p' | tr '\n' ' ')
if [ "$needed" != "libc.so.6 " ]; then fail "it needs '$needed', not libc.so.6 alone"; fi

exit $failed
