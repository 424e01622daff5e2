# Writes every ```cpp block of a document into a file of its own, "folder/name-1.cpp" and so on, and prints the names. A
# ```text block that follows is what the program writes; it goes into "folder/name-1.txt". The compiler is told the
# block's place, so that it complains about a line of the document. A block that begins with a comment naming a file is
# part of a larger example, which is built as the document says.

function leave() {
    if (file != "") {
        close(file)
    }
    file = ""
}

/^```cpp$/ {
    begins = 1
    block = ""
    next
}

begins {
    begins = 0
    if ($0 !~ /^\/\/ [a-z_]+\.cpp$/) {
        block = name "-" ++count
        file = folder "/" block ".cpp"
        printf "#line %d \"%s\"\n", FNR, FILENAME > file
        print block
    }
}

/^```text$/ {
    if (block != "") {
        file = folder "/" block ".txt"
        printf "" > file
    }
    block = ""
    next
}

/^```/ {
    leave()
    next
}

file != "" {
    print > file
}
