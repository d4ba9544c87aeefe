# Writes a C file that defines, for each function that the library exports and the public headers do not declare, a
# function of the same name that reports being called.
#
# own_functions.sh NM LIBRARY OUTPUT PUBLIC-HEADER...
set -eu

nm=$1
library=$2
output=$3
shift 3

{
    echo '#include "own_functions.h"'
    "$nm" -D --defined-only "$library" | awk '$2 == "T" { sub(/@.*/, "", $3); print $3 }' | while read -r name; do
        if ! grep -Eq "(^|[^A-Za-z0-9_])$name\(" "$@"; then
            echo "int $name(void);"
            echo "int $name(void) { return ownFunctionCalled(\"$name\"); }"
            echo "$name" >&3
        fi
    done 3>"$output.names"
    echo "const int ownFunctionCount = $(wc -l <"$output.names");"
} >"$output"
rm -f "$output.names"
