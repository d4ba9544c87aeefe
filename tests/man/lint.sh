# Every page that is installed is clean under mandoc's lint, in every respect but one: whether the manuals of others
# that a page refers to are installed is the machine's business. References to our own pages have to lead somewhere.
#
# lint.sh CMAKE BUILD-FOLDER SOURCE-FOLDER
set -eu

cmake=$1
build=$2
source=$3

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
"$cmake" --install "$build/docs/man" --prefix "$scratch" >/dev/null
cd "$(dirname "$(dirname "$(find "$scratch" -name krvstats.7)")")"

failed=0
checked=0
for page in $(find man? -type f); do
    # Status 1 is for suggestions of style, and higher ones for warnings and errors.
    status=0
    mandoc -T lint -W style "$page" >"$scratch/found" 2>"$scratch/err" || status=$?
    grep -v 'STYLE: referenced manual not found' "$scratch/found" >"$scratch/left" || true
    if [ "$status" -gt 1 ] || [ -s "$scratch/left" ]; then
        echo "$page: mandoc ended with $status"
        cat "$scratch/left" "$scratch/err"
        failed=1
    fi
    checked=$((checked + 1))
done
echo "checked $checked pages"

# Manuals of others; all else has to be among the sources or the links to them.
others=" fork.2 vfork.2 umask.2 printf.3 pthreads.7 pkg-config.1 "
for reference in $(awk '/^\.Xr / { print $2 "." $3 }' "$source"/docs/man/*.[137] | sort -u); do
    case $others in *" $reference "*) continue ;; esac
    if [ ! -f "$source/docs/man/$reference" ] && [ ! -f "man${reference##*.}/$reference" ]; then
        echo "there is no page $reference"
        failed=1
    fi
done
exit $failed
