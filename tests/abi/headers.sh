# Every header compiles alone, in the language and standard that are asked for, without a word from the compiler.
#
# headers.sh FOLDER LANGUAGE COMPILER [OPTION...]
set -eu

folder=$1
language=$2
shift 2

failed=0
count=0
for header in "$folder"/*.h; do
    count=$((count + 1))
    name=$(basename "$header")
    if ! printf '#include "%s"\n#include "%s"\nextern int aDeclaration;\n' "$name" "$name" |
        "$@" -x "$language" -I "$folder" -pedantic -Wall -Wextra -Wconversion -Wshadow -Werror -fsyntax-only -; then
        echo "$name does not compile with: $*"
        failed=1
    fi
done

echo "$count headers"
if [ "$count" -eq 0 ]; then failed=1; fi
exit $failed
