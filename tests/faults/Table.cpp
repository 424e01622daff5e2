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

} // namespace

void writeTable(const std::string& file, const std::string& rows) {
    std::ofstream output(file);
    output << "# Faults\n\n## Outcomes\n\n";
    writeOutcomes(output, rows);
    output << "\n## Sites\n\n";
    writeSites(output);
}

} // namespace rk::tests
