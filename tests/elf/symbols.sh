# The symbols file of the packages, from which dependencies are made, names just what the built library exports.
#
# symbols.sh READELF LIBRARY SYMBOLS-FILE
set -eu

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

"$1" --dyn-syms -W "$2" | awk '$5 == "GLOBAL" && $7 != "UND" { sub(/@@/, "@", $8); print $8 }' |
    sed 's/^\([A-Z]*_[0-9]*\)$/\1@\1/' | sort >"$scratch/exported"
sed -n 's/^ \([^ ]*\) [0-9.]*$/\1/p' "$3" | sort >"$scratch/named"

if ! diff "$scratch/exported" "$scratch/named"; then
    echo "only exported (<), only in $(basename "$3") (>)"
    exit 1
fi
echo "$(wc -l <"$scratch/named") names"
if [ ! -s "$scratch/named" ]; then exit 1; fi
