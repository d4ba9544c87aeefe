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

# Any difference that is not harmless counts, also those that abidiff only wants to have looked at.
if ! abidiff --no-added-syms "$released" "$scratch/built.abi"; then
    echo "this breaks programs that were linked with the released library (see SONAME in CONTRIBUTING.md)"
    exit 1
fi
echo "everything that $(basename "$released") describes is there"
