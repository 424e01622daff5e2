#include "display/Complaints.h"

#include "display/Terminal.h"

#include <cstdio>
#include <unistd.h>

namespace rk::tools {

void Complaints::write(const char* colour, const std::string& text) const {
    if (prepare) {
        prepare();
    }
    const bool coloured = hasColours(STDERR_FILENO);
    std::fprintf(stderr, "%srk-socket:%s %s\n", coloured ? colour : "", coloured ? "\033[0m" : "", text.c_str());
}

void Complaints::add(const std::string& text) {
    added = true;
    report(text);
}

void Complaints::report(const std::string& text) const {
    write("\033[1;31m", text);
}

void Complaints::remark(const std::string& text) const {
    write("\033[1m", text);
}

} // namespace rk::tools
