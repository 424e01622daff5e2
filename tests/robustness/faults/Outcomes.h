#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace rk::tests {

/// The outcome of one failure in an operation.
struct Row {
    std::string operation;
    std::string outcome;
    std::string cause; ///< the function that failed, and at which point
    std::string error;

    bool operator<(const Row& other) const;
};

/// The recorded outcomes: a file with one line for each operation and outcome, which lists the failures that cause it.
///
/// A failure marked with "~" causes it only sometimes. For several failures at once, the record has the parts of their
/// outcomes, which are results and log lines.
class Outcomes {
public:
    static Outcomes& instance();

    /// Reads the record. If `records`, accepts every outcome.
    void load(const std::string& file, bool records);
    /// Replaces the record by `seen`. Recorded rows that were not seen are kept and marked with "~".
    void write(const std::string& file, std::set<Row> seen) const;

    bool holds(const Row& row) const;
    /// Returns whether every part of the outcome is recorded for the operation. Log lines may be recorded for any
    /// operation.
    bool holdsParts(const std::string& operation, const std::string& outcome) const;
    /// Describes the recorded outcomes of a failure.
    std::string expected(const Row& row) const;
    /// Returns the required rows that are not in `seen`.
    std::vector<std::string> missing(const std::set<Row>& seen) const;

private:
    bool isRecording = false;
    std::map<Row, bool> rows; ///< whether the row is marked with "~"
    std::map<std::string, std::set<std::string>> parts;
    std::set<std::string> lines;
};

/// The cause of rows for several failures at once.
extern const char* const several;

/// Returns a name such as "EINTR".
std::string nameOf(int error);

std::vector<std::string> split(const std::string& text, const std::string& separator);

} // namespace rk::tests
