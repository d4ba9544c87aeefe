# The options of a program's --help, and of that of each of its commands, are those of its page, and the other way
# round; so are the commands, and the numbers of the list of exit codes and the variables of the environment where the
# help has these.
#
# options.sh PROGRAM PAGE
set -eu

program=$1
page=$2

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

section() { awk -v wanted=".Sh $1" '/^\.Sh / { isWanted = $0 == wanted } isWanted' "$page"; }

# Lines of the help behind a heading, up to an empty one.
paragraph() { awk -v wanted="$1" '$0 == wanted { isWanted = 1; next } !NF { isWanted = 0 } isWanted' help; }

failed=0
expectSame() {
    echo "$1: --help (<) and the page (>)"
    diff inHelp inPage || failed=1
}

"$program" --help >help
paragraph Commands: | sed -n 's/^  \([a-z][a-z-]*\).*$/\1/p' | sort >inHelp
section COMMANDS | sed -n 's/^\.It Cm \([a-z-]*\).*$/\1/p' | sort >inPage
expectSame commands

paragraph "Exit codes" | sed -n 's/^  \([0-9][0-9]*\) .*$/\1/p' | sort >inHelp
if [ -s inHelp ]; then
    section "EXIT STATUS" | sed -n 's/^\.It \([0-9]*\)$/\1/p' | sort >inPage
    expectSame "exit codes"
fi

paragraph Environment | grep -o '[A-Z]*_[A-Z_]*' | sort -u >inHelp || true
if [ -s inHelp ]; then
    section ENVIRONMENT | grep '^\.It Ev' | grep -o '[A-Z]*_[A-Z_]*' | sort -u >inPage
    expectSame "variables of the environment"
fi

# "  -h,--help  ..." and "  --bind TEXT ..."
section COMMANDS | sed -n 's/^\.It Cm \([a-z-]*\).*$/\1/p' >commands
while read -r command; do
    "$program" "$command" --help >>help </dev/null
done <commands
awk '/^  -[-A-Za-z]/ {
    count = split($1, options, ",")
    for (i = 1; i <= count; ++i) { sub(/[^-A-Za-z0-9].*$/, "", options[i]); print options[i] }
}' help | sort -u >inHelp
[ -s inHelp ]
# ".It Fl h , -help" and ".It Fl -bind Ar ADDRESS" are -h, --help and --bind.
awk '/^\.It Fl / {
    for (i = 3; i <= NF; ++i) {
        if ($i == "Fl" || $i == ",") continue
        if ($(i - 1) != "Fl" && $(i - 1) != ",") break
        print "-" $i
    }
}' "$page" | sort -u >inPage
expectSame options
exit $failed
