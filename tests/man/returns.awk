# Prints CALL CODE for each code that a header's comment says a call returns. A comment with "Returns" holds for all
# calls up to the next such comment.
/\/\*/ { comment = ""; isComment = 1 }
isComment { comment = comment " " $0 }
/\*\// {
    isComment = 0
    if (sub(/^.*Returns/, "", comment)) {
        sub(/Owns:.*$/, "", comment)
        returns = comment
    }
    next
}
!isComment && /^[a-z].*\(.*;$/ {
    call = $0
    sub(/\(.*$/, "", call)
    sub(/^.*[ *]/, "", call)
    left = returns
    while (match(left, /KRVSTAT_[A-Z_]*/)) {
        print call " " substr(left, RSTART, RLENGTH)
        left = substr(left, RSTART + RLENGTH)
    }
}
