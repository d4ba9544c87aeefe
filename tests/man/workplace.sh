# For scripts that do what the pages say: a scratch folder with the files of all pages, and the programs that the pages
# name, by these names. Included with the variables source, library and reporter (- for none); "$@" is the compiler with
# its options.

scratch=$(mktemp -d)
mkdir "$scratch/bin" "$scratch/gateways"
trap 'stopGateways; rm -rf "$scratch"' EXIT
here=$source/tests/man
cd "$scratch"

# gateways/PORT has the process of the gateway that a page has at that port.
stopGateway() {
    if [ -f "gateways/$1" ]; then
        kill "$(cat "gateways/$1")" 2>/dev/null || true
        wait "$(cat "gateways/$1")" 2>/dev/null || true
        rm "gateways/$1"
    fi
}

stopGateways() { for named in "$scratch"/gateways/*; do stopGateway "${named##*/}"; done; }

writeProgram() {
    { echo '#!/bin/sh'; cat; } >"bin/$1"
    chmod +x "bin/$1"
}

compiler=" '$(command -v "$1")'"
shift
for word in "$@"; do compiler="$compiler '$word'"; done
writeProgram cc <<PROGRAM
exec$compiler -std=c99 -pedantic -Wall -Wextra -Wconversion -Wshadow -Werror "\$@"
PROGRAM
writeProgram pkg-config <<PROGRAM
echo "-I$source/source/h -L$(dirname "$library") -Wl,-rpath,$(dirname "$library") -lkrvstats"
PROGRAM
if [ "$reporter" != - ]; then ln -s "$reporter" bin/krvstat; fi
PATH=$scratch/bin:$PATH
HOME=$scratch
export PATH HOME
unset XDG_CONFIG_HOME NO_COLOR CLICOLOR_FORCE
unset KRVSTAT_TARGET KRVSTAT_TIMEOUT KRVSTAT_OUTPUT KRVSTAT_CONFIG KRVSTAT_CONTEXT

for origin in "$source"/docs/man/*.[137]; do
    for file in $(sed -n 's/^\.\\" file: //p' "$origin"); do
        awk -f "$here/literal.awk" -v want="file: $file" "$origin" >"$file"
    done
done
