#include "Table.h"

#include "Sites.h"

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <vector>

namespace rk::tests {

namespace {

std::vector<std::string> fieldsOf(const std::string& line) {
    std::vector<std::string> fields;
    std::istringstream text(line);
    for (std::string field; std::getline(text, field, '|');) {
        fields.push_back(field);
    }
    return fields;
}

std::string joined(const std::set<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts) {
        all += (all.empty() ? "" : ", ") + text;
    }
    return all;
}

void writeOutcomes(std::ostream& output, const std::string& rows) {
    // Operation, call and outcome, with the errors that lead to it.
    std::map<std::string, std::set<std::string>> errors;
    std::istringstream lines(rows);
    for (std::string line; std::getline(lines, line);) {
        const std::vector<std::string> fields = fieldsOf(line);
        const std::string phase = fields[3].empty() ? "" : ", " + fields[3];
        errors["| `" + fields[0] + "` | `" + fields[1] + "`" + phase + " | " + fields[4]].insert(fields[2]);
    }
    output << "| operation | what fails | outcome | errors |\n|---|---|---|---|\n";
    for (const auto& [row, names] : errors) {
        output << row << " | " << joined(names) << " |\n";
    }
}

void writeSites(std::ostream& output) {
    std::map<std::string, int> count;
    for (const Site& site : Sites::instance().all()) {
        ++count["| `" + site.caller + "` | `" + site.callee + "`"];
    }
    output << "| in | call of | sites |\n|---|---|---|\n";
    for (const auto& [row, sites] : count) {
        output << row << " | " << sites << " |\n";
    }
}

void writeUnreachable(std::ostream& output) {
    output << "| in | call of | why |\n|---|---|---|\n";
    for (const Site& site : Sites::instance().all()) {
        if (!site.unreachableBecause.empty()) {
            output << "| `" << site.caller << "` | `" << site.callee << "` | " << site.unreachableBecause << " |\n";
        }
    }
}

} // namespace

void writeTable(const std::string& file, const std::string& rows) {
    std::ofstream output(file);
    output << R"(# Faults

What the library does when what it calls fails. `scripts/faults` makes every call of the shared library fail that can,
with every error that its documentation names, once and from then on, and two calls at once; `tests/faults/` says how.
This page is written by it, and a test fails when it says what is not so.

After each fault, every native socket, context, thread, descriptor and block of memory is given back exactly once, and
the same calls then succeed: on the same object where the socket is as before, else after `create`. But 0MQ is asked once
for the context of the process: without it no socket can be had any later.

## Outcomes

What one failure leads to; E stands for the text of the error. A failure of `operator new` in an operation that says
nothing of it is thrown as `std::bad_alloc`.

)";
    writeOutcomes(output, rows);
    output << "\n## Sites\n\nWhere the library calls what can fail, or what makes such a call on its behalf.\n\n";
    writeSites(output);
    output << "\n## Unreachable sites\n\nWhat the compiler has put there, and no call reaches.\n\n";
    writeUnreachable(output);
}

} // namespace rk::tests
