# Makes a root file system that holds nothing but what the given packages depend on, and installs them into it with dpkg,
# which refuses them if anything is missing. Nothing is downloaded: what they depend on is taken from this system.
#
# bare_root.sh ROOT PACKAGE-FILE...     as root, or in a user namespace
set -eu

root=$1
shift

mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/tmp"
for folder in bin sbin lib lib32 lib64 libx32; do
    mkdir -p "$root/usr/$folder"
    ln -s "usr/$folder" "$root/$folder"
done

# The names in lines of dependencies, of alternatives the first.
names() {
    tr ',' '\n' | sed -e 's/^ *//' -e 's/[ (|:].*//' -e '/^$/d'
}

# These come with each other.
given=" $(for file in "$@"; do dpkg-deb --field "$file" Package; done | tr '\n' ' ')"
wanted=$(for file in "$@"; do
    dpkg-deb --field "$file" Pre-Depends
    dpkg-deb --field "$file" Depends
done | names)
taken=" "
while [ -n "$wanted" ]; do
    next=""
    for package in $wanted; do
        case "$taken$given" in *" $package "*) continue ;; esac
        taken="$taken$package "
        next="$next $(dpkg-query --show --showformat '${Pre-Depends},${Depends}\n' "$package" | names)"
    done
    # shellcheck disable=SC2086,SC2116  # blanks fall away
    wanted=$(echo $next)
done
echo "the bare system has:$taken"

machine=$(dpkg --print-architecture)
for package in $taken; do
    dpkg-query --status "$package" >>"$root/var/lib/dpkg/status"
    echo >>"$root/var/lib/dpkg/status"
    for list in "/var/lib/dpkg/info/$package.list" "/var/lib/dpkg/info/$package:$machine.list"; do
        if [ -f "$list" ]; then cp "$list" "$root/var/lib/dpkg/info"; fi
    done
    # File by file: a whole folder would bring what others put there.
    dpkg-query --listfiles "$package" | while read -r path; do
        if [ -L "$path" ] || [ -f "$path" ]; then echo "${path#/}"; fi
    done | tar --create --directory / --files-from - |
        tar --extract --directory "$root" --keep-directory-symlink --no-same-owner
done

dpkg --root "$root" --install "$@"
