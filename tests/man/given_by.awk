# Prints the codes that docs/return-codes.md says some calls give, by its columns "name" and "given by".
#
# awk -f given_by.awk CALLS DOCUMENT, where CALLS has the names of the calls, one a line
BEGIN {
    FS = "|"
    groups["open"] = "openGatewayConnection openRemoteGatewayConnection"
    groups["queries"] = "getResourceGroupIds getStatIds getStatIdsByStatGroupId getStats getStatsByStatId" \
        " getStatsByStatGroupId"
    groups["walks"] = "getFirstId getNextId getFirstStat getNextStat"
}

FILENAME == ARGV[1] { isWanted[$0] = 1; next }

function gives(call, name) { if (call in isWanted) print name }

$3 ~ /`KRVSTAT_/ {
    name = $3
    gsub(/[ `]/, "", name)
    givenBy = $5
    count = split(givenBy, words, /[^A-Za-z]+/)
    for (i = 1; i <= count; ++i) {
        if (words[i] == "all") print name
        if (words[i] in groups) {
            members = split(groups[words[i]], calls, " ")
            for (k = 1; k <= members; ++k) gives(calls[k], name)
        } else {
            gives(words[i], name)
        }
    }
}
