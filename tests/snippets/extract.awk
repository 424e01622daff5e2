# Writes every ```cpp block of a document into a file of its own, "folder/name-1.cpp" and so on, and prints the names.
# The compiler is told the block's place, so that it complains about a line of the document.

/^```cpp$/ {
    block = name "-" ++count
    file = folder "/" block ".cpp"
    printf "#line %d \"%s\"\n", FNR + 1, FILENAME > file
    print block
    next
}

file != "" && /^```$/ {
    close(file)
    file = ""
}

file != "" {
    print > file
}
