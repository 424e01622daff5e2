# Gives Doxygen a guide: every heading gets a name that is its own on the whole site, and the links, which are written for
# reading in the repository ("delivery.md#repairs"), lead to these names.

# The name of a heading of a document, from the anchor that readers of Markdown give it: "repairs" of "delivery.md".
function name(document, anchor) {
    sub(/.*\//, "", document)
    sub(/\.md$/, "", document)
    gsub(/-/, "_", document)
    gsub(/-/, "_", anchor)
    return anchor == "" ? document : document "_" anchor
}

function anchor_of(heading) {
    heading = tolower(heading)
    gsub(/[^a-z0-9 _-]/, "", heading)
    gsub(/ /, "-", heading)
    return heading
}

# Leads the links of a line to the site's names.
function lead(line,    done, link, target, parts, text, rest) {
    while (match(line, /\]\([^)]*\)/)) {
        link = substr(line, RSTART + 2, RLENGTH - 3)
        if (link ~ /^#/ || link ~ /\.md(#.*)?$/) {
            split(link, parts, "#")
            target = "@ref " name(parts[1] == "" ? FILENAME : parts[1], parts[2])
        } else {
            target = link
            if (FILENAME ~ /guide\//) {
                sub(/^\.\.\//, "", target) # the pages of the site lie in one folder
            }
        }
        text = substr(line, 1, RSTART - 1)
        rest = substr(line, RSTART + RLENGTH)
        if (target ~ /^@ref/ && match(text, /\[`[^`]*`$/)) { # shown as it is, with its marks
            text = substr(text, 1, RSTART) substr(text, RSTART + 2, RLENGTH - 3)
        }
        done = done text "](" target ")"
        line = rest
    }
    return done line
}

/^```/ {
    fenced = !fenced
}

fenced || /^    / {
    print
    next
}

# Doxygen wants the text of a link in one line.
{
    while ($0 ~ /\[[^]`]*$/ && (getline rest) > 0) {
        $0 = $0 " " rest
    }
}

/^# / && FILENAME !~ /index\.md$/ {
    print $0 " {#" name(FILENAME, "") "}"
    print "\n\\tableofcontents{HTML:1}\n"
    next
}

/^##+ / {
    heading = $0
    sub(/^#+ /, "", heading)
    print lead($0) " {#" name(FILENAME, anchor_of(heading)) "}"
    next
}

{
    print lead($0)
}
