# The packages of the programs bring all that the programs need: in a system that has nothing else, not even a shell, the
# reporter asks the simulated gateway, which serves the scenario that comes with it.
#
# reporter.sh PACKAGES-FOLDER
set -eu

packages=$1
here=$(cd "$(dirname "$0")" && pwd)

# Changing the root needs the rights of root, or those that a user has in a namespace of its own.
if [ "$(id -u)" -ne 0 ]; then exec unshare --map-root-user sh "$0" "$@"; fi

scratch=$(mktemp -d)
gateway=""
cleanUp() {
    if [ -n "$gateway" ]; then
        kill "$gateway" 2>/dev/null || true
        wait "$gateway" 2>/dev/null || true
    fi
    rm -rf "$scratch"
}
trap cleanUp EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
root=$scratch/root

sh "$here/bare_root.sh" "$root" "$packages"/libkrvstats1_*.deb "$packages"/krvstat_*.deb "$packages"/krvgwsim_*.deb

chroot "$root" /usr/bin/krvgwsim --quiet --port 0 --port-file /tmp/port \
    --scenario /usr/share/doc/krvgwsim/examples/example.yaml &
gateway=$!

# The port file is the gateway's sign that it listens.
tries=0
while [ ! -s "$root/tmp/port" ]; do
    tries=$((tries + 1))
    if [ "$tries" -gt 300 ] || ! kill -0 "$gateway" 2>/dev/null; then
        echo "the gateway did not start"
        exit 1
    fi
    sleep 0.1
done

chroot "$root" /usr/bin/krvstat --target "127.0.0.1:$(cat "$root/tmp/port")" get >"$scratch/values"
if ! grep -Eq '^orders\.queue_name +inbound *$' "$scratch/values"; then
    echo "the reporter did not show what the scenario says but:"
    cat "$scratch/values"
    exit 1
fi

# Pages and completions are where man and the shells look for them.
for file in man/man1/krvstat.1.gz man/man1/krvgwsim.1.gz bash-completion/completions/krvstat \
    zsh/vendor-completions/_krvstat fish/vendor_completions.d/krvstat.fish; do
    if [ ! -s "$root/usr/share/$file" ]; then
        echo "there is no /usr/share/$file"
        exit 1
    fi
done
echo "the reporter runs in a bare system"
