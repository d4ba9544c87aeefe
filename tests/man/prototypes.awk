# Prints what a header declares, or what a page of section 3 says that it declares, in one form for both: a line each,
# the header's name, then the prototype or the type with no more blanks than needed.
function bare(text) {
    gsub(/[ \t]+/, " ", text)
    gsub(/ ?\* ?/, "*", text)
    gsub(/ ?, ?/, ",", text)
    gsub(/ ?; ?/, ";", text)
    gsub(/ ?[{] ?/, "{", text)
    gsub(/ ?[}] ?/, "}", text)
    gsub(/ ?\( ?/, "(", text)
    gsub(/ ?\) ?/, ")", text)
    gsub(/^ | $/, "", text)
    return text
}

function declare(text) {
    text = bare(text)
    sub(/;$/, "", text)
    if (text ~ /[(]|^typedef/) print header " " text
}

FNR == 1 { isHeader = FILENAME ~ /\.h$/; header = FILENAME; sub(/^.*\//, "", header) }

# A header: without comments and what is for the preprocessor, cut at the semicolons that stand outside of braces.
isHeader {
    line = $0
    if (isComment) {
        if (!sub(/^.*\*\//, "", line)) next
        isComment = 0
    }
    gsub(/\/\*([^*]|\*[^\/])*\*\//, "", line)
    if (sub(/\/\*.*$/, "", line)) isComment = 1
    if (line ~ /^#|^extern "C"|^}$/) next
    declaration = declaration " " line
    if (line ~ /{/) isRecord = 1
    if (line ~ /}/) isRecord = 0
    if (!isRecord && line ~ /;[ \t]*$/) {
        declare(declaration)
        declaration = ""
    }
    next
}

# A page.
/^\.Sh / { isSynopsis = $0 == ".Sh SYNOPSIS" }
/^\.In / && isSynopsis { header = $2 }
/^\.Ft / { type = substr($0, 5); gsub(/"/, "", type) }
/^\.Fo / { name = $2; arguments = "" }
/^\.Fa / && isSynopsis { argument = substr($0, 5); gsub(/"/, "", argument); arguments = arguments "," argument }
/^\.Fc/ { declare(type " " name "(" substr(arguments, 2) ")") }
/^\.Fn / && isSynopsis { declare(type " " $2 "(" $3 ")") }
/^\.Vt typedef/ && isSynopsis { declare(substr($0, 5)) }
/^\.\\" record/ { isRecord = 1; declaration = "" }
isRecord && /^[^.]/ { declaration = declaration " " $0 }
/^\.Ed/ && isRecord { isRecord = 0; declare(declaration) }
