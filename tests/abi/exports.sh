# The linker map, the headers and the built library name exactly the same things.
#
# exports.sh NM LIBRARY MAP HEADERS-FOLDER
#
# Of a header counts what it declares (not static) above a comment that says "not exported", or everywhere without one.
set -eu

nm=$1
library=$2
map=$3
headers=$4

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# Names between "global:" and "local:", comments left out.
sed -e 's|/\*[^*]*\*/||g' -e 's|#.*||' "$map" |
    awk '/local:/ { inside = 0 } inside { gsub(/[;[:space:]]+/, "\n"); print } /global:/ { inside = 1 }' |
    sed '/^$/d' | sort >"$folder/map"

"$nm" -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort >"$folder/library"

for header in "$headers"/*.h; do
    awk '
        # The text without comments and preprocessor lines, up to the section that is not exported.
        {
            line = $0
            if (line ~ /not exported/) exit
            while (1) {
                if (comment) {
                    if (!match(line, /\*\//)) { line = ""; break }
                    line = substr(line, RSTART + 2)
                    comment = 0
                }
                if (!match(line, /\/\*/)) break
                rest = substr(line, RSTART + 2)
                kept = substr(line, 1, RSTART - 1)
                if (match(rest, /\*\//)) {
                    line = kept " " substr(rest, RSTART + 2)
                } else {
                    text = text " " kept
                    comment = 1
                    line = ""
                    break
                }
            }
            if (continued || line ~ /^[ \t]*#/) { continued = (line ~ /\\$/); next }
            text = text " " line
        }
        function declared(statement)
        {
            gsub(/__attribute__[ \t]*\(\([^;]*\)\)/, "", statement)
            if (statement ~ /(^|[ \t])(static|typedef)[ \t]/ || statement !~ /[A-Za-z_]/) return
            if (statement ~ /\(/) sub(/[ \t]*\(.*/, "", statement)
            else if (statement ~ /(^|[ \t])extern[ \t]/) sub(/[ \t]*\[.*/, "", statement)
            else return
            match(statement, /[A-Za-z_][A-Za-z_0-9]*[ \t]*$/)
            name = substr(statement, RSTART, RLENGTH)
            gsub(/[ \t]/, "", name)
            print name
        }
        END {
            gsub(/extern "C" \{/, "", text)
            depth = 0
            statement = ""
            for (i = 1; i <= length(text); i++) {
                c = substr(text, i, 1)
                if (c == "{") { depth++; continue }
                if (c == "}") { if (depth > 0 && --depth == 0 && statement ~ /\(/) statement = ""; continue }
                if (depth > 0) continue
                if (c == ";") { declared(statement); statement = ""; continue }
                statement = statement c
            }
        }' "$header"
done | sort >"$folder/headers"

failed=0
compare() {
    if ! diff "$folder/$1" "$folder/$2" >"$folder/difference"; then
        echo "only in the $1 (<), only in the $2 (>):"
        grep '^[<>]' "$folder/difference"
        failed=1
    fi
}
compare map library
compare map headers

for kind in map library headers; do echo "$(wc -l <"$folder/$kind") names in the $kind"; done
if [ ! -s "$folder/map" ]; then failed=1; fi
exit $failed
