# Writes a C file that defines, for each function that the library exports and the public header does not declare, a
# function of the same name that reports being called.
#
# own_functions.sh NM LIBRARY PUBLIC-HEADER OUTPUT
set -eu

nm=$1
library=$2
header=$3
output=$4

{
    echo '#include "own_functions.h"'
    "$nm" -D --defined-only "$library" | awk '$2 == "T" { sub(/@.*/, "", $3); print $3 }' | while read -r name; do
        if ! grep -Eq "(^|[^A-Za-z0-9_])$name\(" "$header"; then
            echo "int $name(void);"
            echo "int $name(void) { return ownFunctionCalled(\"$name\"); }"
            echo "$name" >&3
        fi
    done 3>"$output.names"
    echo "const int ownFunctionCount = $(wc -l <"$output.names");"
} >"$output"
rm -f "$output.names"
