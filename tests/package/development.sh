# The package for development has all that programs in C and C++ are built with, by pkg-config and by find_package.
#
# development.sh PACKAGES-FOLDER
set -eu

packages=$1
here=$(cd "$(dirname "$0")" && pwd)

# Installing needs the rights of root, or those that a user has in a namespace of its own.
if [ "$(id -u)" -ne 0 ]; then exec unshare --map-root-user sh "$0" "$@"; fi

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
root=$scratch/root

sh "$here/bare_root.sh" "$root" "$packages"/libkrvstats1_*.deb "$packages"/libkrvstats-dev_*.deb

version=$(dpkg-deb --field "$packages"/libkrvstats-dev_*.deb Version)
sh "$here/../install/consume.sh" "$root/usr" "$version" cmake Ninja pkg-config cc c++

for page in man3/openGatewayConnection.3.gz man3/getStats.3.gz man7/krvstats.7.gz; do
    if [ ! -s "$root/usr/share/man/$page" ]; then
        echo "there is no page $page"
        exit 1
    fi
done
echo "programs build with the package for development"
