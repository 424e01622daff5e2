# Writes the versions of CHANGELOG.md as a Debian changelog. A version without a date gets the current one.
# variables: source, release, maintainer, date (as in mail)

function write_wrapped(indent, text, words, count, i, line) {
    count = split(text, words, " ")
    line = indent words[1]
    sub(/./, " ", indent)
    for (i = 2; i <= count; ++i) {
        if (length(line " " words[i]) > 80) {
            print line
            line = "   "
        }
        line = line " " words[i]
    }
    print line
}

function end_item() {
    if (item != "") write_wrapped("  * ", item)
    item = ""
}

function end_version() {
    end_item()
    if (version != "") printf "\n -- %s  %s\n", maintainer, dated
}

/^## \[/ {
    if (version != "") { end_version(); print "" }
    version = $2
    gsub(/[][]/, "", version)
    dated = date
    if ($NF ~ /^[0-9]/) {
        command = "date --utc --rfc-email --date=" $NF
        command | getline dated
        close(command)
    }
    printf "%s (%s-%s) unstable; urgency=medium\n\n", source, version, release
    next
}
/^- /    { end_item(); item = substr($0, 3) }
/^  /    { item = item " " $0 }
/^#|^$/  { end_item() }
END      { end_version() }

{ gsub(/`/, "", item) }
