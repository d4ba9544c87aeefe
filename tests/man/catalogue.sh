# The page of the gateway has every misbehaviour, message, field and key of a scenario that there is, and no other.
#
# catalogue.sh KRVGWSIM SOURCE-FOLDER
set -eu

program=$1
source=$2
page=$source/docs/man/krvgwsim.1

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

section() { awk -v wanted=".Sh $1" '/^\.Sh / { isWanted = $0 == wanted } isWanted' "$page"; }

echo "misbehaviours and fields: the program (<) and the page (>)"
"$program" --list-misbehaviours >list
sed -n 's/^  \([a-z][a-z-]*\).*$/\1/p' list | sort >inProgram
[ -s inProgram ]
section MISBEHAVIOUR | sed -n 's/^\.It Cm \([a-z-]*\).*$/\1/p' | sort >inPage
diff inProgram inPage

echo "messages"
sed -n 's/^Messages: //p' list | tr ' ' '\n' | sort >inProgram
[ -s inProgram ]
section MISBEHAVIOUR | sed -n 's/^\.Cm \(.*\)$/\1/p' | tr -s ' ,.' '\n' | sort >inPage
diff inProgram inPage

echo "keys of a scenario: the example, which has all, (<) and the page (>)"
sed 's/#.*$//; s/"[^"]*"//g' "$source/gateway/scenarios/example.yaml" | grep -o '[a-z-]*:' | sed 's/^-*//; s/:$//' |
    sort -u >inProgram
[ -s inProgram ]
section SCENARIOS | sed -n 's/^\.\(It \)*Ic \([a-z-]*\).*$/\2/p' | sort -u >inPage
diff inProgram inPage
