# The first sentence of each entry of the list of codes is the one that the library gives for that code.
#
# sentences.sh SOURCE-FOLDER LIBRARY COMPILER [OPTION...]
set -eu

source=$1
library=$2
shift 2
reporter=-
. "$source/tests/man/workplace.sh"

# NUMBER NAME: the text of the entry, up to its first macro
awk '
    isEntry && /^\./ { isEntry = 0; print entry }
    /^\.It Dv KRVSTAT_.* Pq / { isEntry = 1; entry = $5 " " $3 ":"; sub(/^\\/, "", entry) }
    /^\./ { next }
    isEntry { gsub(/\\\(aq/, "\047"); entry = entry " " $0 }
' "$source/docs/man/getReturnCodeName.3" >inPage
[ "$(wc -l <inPage)" -gt 30 ]

cc -o explain explain.c $(pkg-config --cflags --libs krvstats)
# shellcheck disable=SC2046  # numbers
./explain $(cut -d ' ' -f 1 inPage) >inLibrary

# The page may say more behind the sentence.
awk '
    NR == FNR { sentence[NR] = $0; next }
    index($0, sentence[FNR]) != 1 { print "library: " sentence[FNR]; print "page:    " $0; failed = 1 }
    END { exit failed }
' inLibrary inPage
wc -l <inPage
