# Installs the built tree and reads what a hardened build must show from the machine code and the headers of its libraries
# and programs. Says of each file what is missing.
#
# installed.sh CMAKE SOURCES BUILD-FOLDER READELF OBJDUMP HARDENED FORTIFIED RECORDED
#
# HARDENED   1: compiler and linker were given the flags of a hardened build
# FORTIFIED  1: calls of libc were checked by size too (which takes an optimising compiler)
# RECORDED   1: gcc's debugging information names its options
set -eu

cmake=$1
sources=$2
build=$3
readelf=$4
objdump=$5
hardened=$6
fortified=$7
recorded=$8

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
failed=0

fail() {
    echo "$name: $1"
    failed=1
}

# What holds of every build: nothing is writable and executable, nothing is looked for where the file was built.
checkMapping() {
    if grep -q TEXTREL "$scratch/dynamic"; then fail "it has text relocations"; fi
    if grep -Eq '\((RPATH|RUNPATH)\)' "$scratch/dynamic"; then fail "it has a run path"; fi
    stack=$(awk '$1 == "GNU_STACK" { for (i = 7; i < NF; i++) printf "%s", $i }' "$scratch/segments")
    if [ "$stack" != RW ]; then fail "its stack is '$stack', not RW"; fi
    if awk '$1 == "LOAD"' "$scratch/segments" | grep -q RWE; then fail "a segment is writable and executable"; fi
}

checkHardening() {
    if ! grep -q '^Elf file type is DYN' "$scratch/segments"; then fail "it has a fixed address"; fi
    if ! grep -q GNU_RELRO "$scratch/segments"; then fail "its relocations stay writable"; fi
    if ! grep -Eq 'BIND_NOW|FLAGS_1.*NOW' "$scratch/dynamic"; then fail "it is bound lazily"; fi
    if ! grep -q ' UND __stack_chk_fail@' "$scratch/symbols"; then fail "no stack frame is protected"; fi

    # More than a page at once would step over the page that guards the stack. (Negative numbers make it shrink.)
    awk '$2 ~ /^sub[lq]?$/ && $3 $4 ~ /^\$[0-9a-fx]+,%[er]sp$/ {
        size = $3
        gsub(/^\$|,.*/, "", size)
        if (sub(/^0x/, "", size)) leap = size !~ /^fffff/ && (length(size) > 4 || (length(size) == 4 && size > "1000"))
        else leap = size + 0 > 4096
        if (leap) print
    }' "$scratch/code" >"$scratch/leaps"
    if [ -s "$scratch/leaps" ]; then fail "the stack grows by more than a page at: $(cat "$scratch/leaps")"; fi
}

# Every function that others may jump to says so, where processors look for it.
checkEntries() {
    awk '$4 == "FUNC" && $7 != "UND" { print $2 }' "$scratch/symbols" | sed 's/^0*//' | sort -u >"$scratch/entries"
    if [ ! -s "$scratch/entries" ]; then fail "it exports no function"; fi
    awk 'NR == FNR { entry[$1 ":"] = 1; next }
        $1 in entry { seen++; if ($2 !~ /^endbr(32|64)$/) print $1, $2 }
        END { if (seen < length(entry)) print length(entry) - seen, "of them have no code" }' \
        "$scratch/entries" "$scratch/code" >"$scratch/unmarked"
    if [ -s "$scratch/unmarked" ]; then fail "exported functions without endbr: $(cat "$scratch/unmarked")"; fi
}

# Level 1 checks what copies, level 2 what prints too.
checkFortified() {
    if ! grep -q ' UND __[a-z]*printf_chk@' "$scratch/symbols"; then fail "its formatted output is not checked"; fi
}

# One source that was compiled at a lower level does not show in its file: the commands of the build tell.
checkLevel() {
    case $name in
        krvgwsim) part=gateway ;;
        krvstat) part=tools/krvstat ;;
        *) part=source ;;
    esac
    awk -v folder="$sources/$part/" '
        $1 == "\"command\":" {
            level = "not at all"
            for (i = 2; i <= NF; i++) if ($i ~ /^-[DU]_FORTIFY_SOURCE/) level = $i
        }
        $1 == "\"file\":" && index($0, "\"" folder) {
            seen = 1
            if (level !~ /^-D_FORTIFY_SOURCE=[23]$/) print $2, level
        }
        END { if (!seen) print "there is no command for", folder }' "$build/compile_commands.json" >"$scratch/levels"
    if [ -s "$scratch/levels" ]; then fail "compiled with calls of libc checked at another level: $(cat "$scratch/levels")"; fi
}

# The compiler's own record, for what need not leave a trace in a program's code.
checkRecord() {
    "$readelf" --debug-dump=info --dwarf-depth=1 "$1" 2>/dev/null | sed -n 's/.*DW_AT_producer.*: GNU C/GNU C/p' >"$scratch/record"
    if [ ! -s "$scratch/record" ]; then fail "the options of the compiler are not recorded"; fi
    # shellcheck disable=SC2086  # words
    for flag in -fstack-protector-strong -fstack-clash-protection $marksEntries; do
        if grep -v -e "$flag" "$scratch/record"; then fail "it was compiled without $flag"; fi
    done
}

"$cmake" --install "$build" --prefix "$prefix" >"$scratch/log" || { cat "$scratch/log"; exit 1; }

find "$prefix" -type f \( -name '*.so.*' -o -path '*/bin/*' \) >"$scratch/files"
if ! grep -q 'libkrvstats\.so\.' "$scratch/files"; then
    echo "no shared library was installed"
    exit 1
fi

while read -r file; do
    name=$(basename "$file")
    case $("$readelf" -hW "$file" | sed -n 's/.*Machine: *//p') in
        *X86-64 | *80386) marksEntries=-fcf-protection ;;
        *) marksEntries="" ;;
    esac
    "$readelf" -dW "$file" >"$scratch/dynamic"
    "$readelf" -lW "$file" >"$scratch/segments"
    "$readelf" --dyn-syms -W "$file" >"$scratch/symbols"
    "$objdump" -d --no-show-raw-insn "$file" >"$scratch/code"
    checkMapping
    if [ "$hardened" = 1 ]; then
        checkHardening
        if [ "$recorded" = 1 ]; then checkRecord "$file"; fi
        case $name in *.so.*) if [ -n "$marksEntries" ]; then checkEntries; fi ;; esac
    fi
    if [ "$fortified" = 1 ]; then
        checkLevel
        # clang has none of it in C++ but for what takes a list of arguments, as the library does.
        case $recorded,$name in 1,* | *.so.*) checkFortified ;; esac
    fi
    echo "read $name"
done <"$scratch/files"

exit $failed
