# "man NAME" finds a page for every public function, with the prototype that the header has, and the overview names it;
# no page declares what no header does.
#
# functions.sh CMAKE BUILD-FOLDER SOURCE-FOLDER
set -eu

cmake=$1
build=$2
source=$3
here=$source/tests/man

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
"$cmake" --install "$build/docs/man" --prefix "$scratch" >/dev/null
manuals=$(dirname "$(dirname "$(find "$scratch" -name krvstats.7)")")

awk -f "$here/prototypes.awk" "$source/source/h/krvstats.h" "$source/source/h/krvstats_ext.h" | sort >"$scratch/headers"
awk -f "$here/prototypes.awk" "$source"/docs/man/*.3 | sort >"$scratch/pages"
echo "what the headers (<) and the pages (>) declare"
diff "$scratch/headers" "$scratch/pages"

names=$(sed -n 's/^.*[ *]\([A-Za-z]*\)(.*$/\1/p' "$scratch/headers")
[ -n "$names" ]
failed=0
for name in $names; do
    if ! mman -M "$manuals" -T ascii 3 "$name" >"$scratch/shown" 2>"$scratch/err"; then
        echo "there is no page for $name"
        cat "$scratch/err"
        failed=1
    elif ! awk '{ gsub(".\b", "") } /^[A-Z]/ { isName = $0 == "NAME" } isName' "$scratch/shown" | grep -qw "$name"; then
        echo "$name: the page that is shown has another name"
        failed=1
    fi
    if ! grep -q "^\.Fn $name\( ,\)*\$" "$source/docs/man/krvstats.7"; then
        echo "$name: the overview does not name it"
        failed=1
    fi
done
# shellcheck disable=SC2086  # a list of words
echo "looked up:" $names
exit $failed
