# The built library offers everything that the released one did: the same functions with the same arguments, the same
# records. New names may have come. The records of private headers count as opaque: applications do not look into them.
#
# interface.sh DESCRIBE RELEASED LIBRARY PUBLIC-HEADER...
#
# DESCRIBE made RELEASED, the description of the released library, and makes one of LIBRARY.
set -eu

describe=$1
released=$2
library=$3
shift 3

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
"$describe" "$library" "$scratch/built.abi" "$@"

# compareWith DESCRIPTION: 4 or more if it differs. Any difference but an added name counts, also those that abidiff only
# wants to have looked at, and those that it calls harmless: a field by another name leaves programs as they are, but not
# their sources.
compareWith() {
    result=0
    abidiff --no-added-syms --harmless "$1" "$scratch/built.abi" || result=$?
}

compareWith "$released"
if [ "$result" -ne 0 ]; then
    echo "this breaks programs that were written for the released library (see SONAME in CONTRIBUTING.md)"
    exit 1
fi

# Would it be noticed?
sed "s/<var-decl name='statValuePtr'/<var-decl name='statTextPtr'/" "$released" >"$scratch/renamed.abi"
compareWith "$scratch/renamed.abi" >"$scratch/difference"
if [ "$result" -lt 4 ]; then
    cat "$scratch/difference"
    echo "a field by another name is not noticed"
    exit 1
fi
echo "everything that $(basename "$released") describes is there"
