# The return codes of the pages and the documents are those of the header: each name stands with its number, the two
# tables of all codes are complete, and the page of a call has the codes that the call gives by the document and by the
# headers.
#
# codes.sh SOURCE-FOLDER
set -eu

source=$1
pages=$source/docs/man

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

# NAME NUMBER, a line each
sed -n 's/^#define \(KRVSTAT_[A-Z_]*\) (*\(-*[0-9]*\))*.*$/\1 \2/p' "$source/source/h/krvstats.h" | sort >header
[ "$(wc -l <header)" -gt 30 ]

failed=0
expectSame() {
    if ! diff "$2" "$3"; then
        echo "$1: the header (<) and the other (>) differ"
        failed=1
    fi
}

echo "names with their numbers"
for page in "$pages"/*.[137]; do
    sed -n 's/^\.[A-Za-z ]*Dv \(KRVSTAT_[A-Z_]*\) Pq \\*\(-*[0-9]*\).*$/\1 \2/p' "$page"
done | sort -u >inPages
comm -13 header inPages >wrong
sed -n 's/^.*`\(KRVSTAT_[A-Z_]*\)` (\(-*[0-9]*\)).*$/\1 \2/p' "$source/README.md" "$source"/docs/*.md | sort -u >inDocuments
comm -13 header inDocuments >>wrong
if [ -s wrong ] || [ ! -s inPages ] || [ ! -s inDocuments ]; then
    cat wrong
    failed=1
fi

echo "names that are none"
{
    cut -d " " -f 1 header
    echo KRVSTAT_UNKNOWN
    sed -n 's/^\.It Ev \(KRVSTAT_[A-Z]*\)$/\1/p' "$pages/krvstat.1" # variables of the environment
} | sort >known
cat "$pages"/*.[137] | grep -o 'KRVSTAT_[A-Z_]*[A-Z]' | sort -u >named
grep -hv '^#define' "$source"/docs/*.md | grep -o 'KRVSTAT_[A-Z_]*[A-Z]' | sort -u >>named
sort -u named | comm -13 known - >wrong
if [ -s wrong ]; then
    cat wrong
    failed=1
fi

echo "tables of all codes"
sed -n 's/^\.It Dv \(KRVSTAT_[A-Z_]*\) Pq \\*\(-*[0-9]*\)$/\1 \2/p' "$pages/getReturnCodeName.3" | sort >table
expectSame getReturnCodeName.3 header table
sed -n 's/^| \(-*[0-9]*\) | `\(KRVSTAT_[A-Z_]*\)` |.*$/\2 \1/p' "$source/docs/return-codes.md" | sort >table
expectSame return-codes.md header table

echo "codes of each page"
awk -f "$source/tests/man/returns.awk" "$source/source/h/krvstats.h" "$source/source/h/krvstats_ext.h" >inHeaders
compared=0
for page in "$pages"/*.3; do
    case $page in */getReturnCodeName.3) continue ;; esac
    sed -n 's/^\.Nm \([A-Za-z]*\).*$/\1/p' "$page" >calls
    awk '/^\.Sh / { isWanted = $0 == ".Sh RETURN VALUES" } isWanted' "$page" |
        sed -n 's/^\.[A-Za-z ]*Dv \(KRVSTAT_[A-Z_]*\) Pq .*$/\1/p' | sort -u >inPage
    awk -f "$source/tests/man/given_by.awk" calls "$source/docs/return-codes.md" | sort -u >inDocument
    if ! diff inDocument inPage; then
        echo "$(basename "$page"): return-codes.md (<) and the page (>) differ"
        failed=1
    fi
    awk 'NR == FNR { isWanted[$1] = 1; next } $1 in isWanted { print $2 }' calls inHeaders | sort -u >ofHeaders
    if comm -23 ofHeaders inPage | grep .; then
        echo "$(basename "$page"): the headers say that its calls return these"
        failed=1
    fi
    compared=$((compared + 1))
done
[ "$compared" -gt 0 ]
exit $failed
