# Does what the sessions of a page show, command by command, and compares what comes out with what the page shows.
#
# session.sh PAGE SOURCE-FOLDER LIBRARY REPORTER COMPILER [OPTION...]   (REPORTER may be -: none)
#
# The gateway is the program that KRVSTATS_GATEWAY_PROGRAM names.
#
# A line "$ COMMAND" is run by the shell; what stands below it is its output. A gateway, "$ krvgwsim ... &", gets a free
# port in the place of the one that the page has, in all commands and outputs; it ends with the session, or when
# another one takes its port.
set -eu

page=$1
source=$2
library=$3
reporter=$4
shift 4
. "$source/tests/man/workplace.sh"

startGateway() {
    named=$(echo "$1" | sed -n 's/^.*--port \([0-9]*\).*$/\1/p')
    named=${named:-7845}
    stopGateway "$named"
    rm -f port
    # shellcheck disable=SC2046  # the words of its options
    "$KRVSTATS_GATEWAY_PROGRAM" $(echo "$1" | sed 's/^krvgwsim//; s/&$//; s/--port [0-9]*//') --port 0 --port-file port \
        >listening 2>complaints &
    echo $! >"gateways/$named"
    tries=0
    while [ ! -s port ] || [ ! -s listening ]; do
        tries=$((tries + 1))
        if [ "$tries" -gt 200 ] || ! kill -0 "$(cat "gateways/$named")" 2>/dev/null; then
            echo "the gateway did not start: $1" >&2
            cat complaints >&2
            exit 1
        fi
        sleep 0.1
    done
    port=$(cat port)
    { grep -v "^s/$named/" toReal || true; echo "s/$named/$port/g"; } >toReal.new
    { grep -v "/$named/g\$" toPage || true; echo "s/$port/$named/g"; } >toPage.new
    mv toReal.new toReal
    mv toPage.new toPage
    if [ "$named" = 7845 ]; then
        KRVSTAT_TARGET=127.0.0.1:$port
        export KRVSTAT_TARGET
    fi
}

: >toReal
: >toPage
awk -f "$here/literal.awk" -v want=session "$page" >expected
while IFS= read -r line; do
    case $line in
        '$ krvgwsim '*'&')
            printf '%s\n' "$line"
            startGateway "${line#??}"
            sed -f toPage listening
            ;;
        '$ '*)
            printf '%s\n' "$line"
            printf '%s\n' "${line#??}" | sed -f toReal >step
            sh step </dev/null 2>&1 | sed -f toPage
            ;;
    esac
done <expected >happened

echo "the page (<) and what happened (>)"
diff expected happened
grep -c '^\$ ' happened
