# Prints what stands in the literal displays of a page behind a comment of a given kind:
#
#   .\" file: NAME      with -v want="file: NAME"
#   .\" session         with -v want="session": all of them, one after the other
#   .\" record          likewise
#
# In a display a renderer may turn some characters into others that look alike, so that what a reader copies is
# no longer what stands there. Such characters have to be escaped; where one is not, this fails and says so.
function refuse(what) {
    print FILENAME ":" FNR ": " what ": " $0 >"/dev/stderr"
    failed = 1
    exit 1
}

function plain(text) {
    gsub(/\\-/, "\001", text)
    if (text ~ /[-'`^~]/) refuse("not escaped")
    gsub(/\001/, "-", text)
    gsub(/\\\(aq/, "'", text)
    gsub(/\\\(ga/, "`", text)
    gsub(/\\\(ha/, "^", text)
    gsub(/\\\(ti/, "~", text)
    sub(/^\\&/, "", text)
    gsub(/\\e/, "\001", text)
    if (text ~ /\\/) refuse("an escape of another kind")
    gsub(/\001/, "\\", text)
    return text
}

/^\.\\" / { isWanted = substr($0, 5) == want; next }
isWanted && /^\.Bd -literal/ { isInside = 1; next }
isInside && /^\.Ed/ { isInside = isWanted = 0; next }
isInside { if (/^\./) refuse("a request"); print plain($0); found = 1 }

END {
    if (!failed && !found && !mayMiss) {
        print FILENAME ": no display of the kind \"" want "\"" >"/dev/stderr"
        failed = 1
    }
    exit failed
}
