#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace rk::tests {

/// What one failure in an operation came to.
struct Row {
    std::string operation;
    std::string outcome;
    std::string cause; ///< the function that failed, and when
    std::string error;

    bool operator<(const Row& other) const;
};

/// The outcomes that are on record: a file with a line for each operation and outcome, with the failures that lead there.
///
/// A failure marked with "~" leads there or elsewhere, as chance has it. Of several failures at once the record holds the
/// parts of their outcomes: results and log lines.
class Outcomes {
public:
    static Outcomes& instance();

    /// Reads the record. When a new one is made, every outcome is taken as it comes.
    void load(const std::string& file, bool records);
    /// Writes it anew: `seen`, and as a matter of chance what was on record and was not seen.
    void write(const std::string& file, std::set<Row> seen) const;

    bool holds(const Row& row) const;
    /// Whether every part of the outcome is on record for the operation, or its lines for any.
    bool holdsParts(const std::string& operation, const std::string& outcome) const;
    /// What is on record for a failure, in words.
    std::string expected(const Row& row) const;
    /// The rows that have to be seen, and are not in `seen`.
    std::vector<std::string> missing(const std::set<Row>& seen) const;

private:
    bool isRecording = false;
    std::map<Row, bool> rows; ///< whether a matter of chance
    std::map<std::string, std::set<std::string>> parts;
    std::set<std::string> lines;
};

/// The cause of rows that hold what several failures come to.
extern const char* const several;

/// "EINTR".
std::string nameOf(int error);

} // namespace rk::tests
