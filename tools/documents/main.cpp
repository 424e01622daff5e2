// Writes the manual page or a shell's completion to standard output, from the description of the command line.

#include "BashCompletion.h"
#include "CommandLine.h"
#include "ManPage.h"
#include "ZshCompletion.h"

#include <iostream>
#include <string_view>

int main(int argc, char** argv) {
    using namespace rk::tools;
    const Description program = describeCommandLine();
    const std::string_view document = argc == 2 ? argv[1] : "";
    if (document == "man") {
        std::cout << documents::manPage(program);
    } else if (document == "bash") {
        std::cout << documents::bashCompletion(program);
    } else if (document == "zsh") {
        std::cout << documents::zshCompletion(program);
    } else {
        std::cerr << "usage: " << argv[0] << " man|bash|zsh\n";
        return 2;
    }
    return 0;
}
