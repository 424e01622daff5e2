#include "Outcomes.h"

#include "support/Immortal.h"
#include "support/interpose/Interpose.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <tuple>

namespace rk::tests {

namespace {

/// "*" means every error that the function's documentation names.
std::set<std::string> errorsOf(const std::string& cause) {
    std::set<std::string> names;
    for (const Intercepted& entry : intercepted) {
        if (cause.compare(0, entry.name.size(), entry.name) == 0) {
            for (const int error : entry.errors) {
                if (error != 0) {
                    names.insert(nameOf(error));
                }
            }
        }
    }
    return names;
}

bool isLine(const std::string& part) {
    return part.compare(0, 4, "logs") == 0;
}

/// Returns the rows. For rows of several failures, keeps only the parts that no single failure causes.
std::set<Row> withoutKnownParts(const std::set<Row>& rows) {
    std::set<Row> result;
    std::set<std::pair<std::string, std::string>> known;
    for (const bool ofOne : {true, false}) {
        for (const Row& row : rows) {
            if ((row.cause != several) != ofOne) {
                continue;
            }
            for (const std::string& part : split(row.outcome, "; ")) {
                const std::string operation = isLine(part) ? "any" : row.operation;
                const bool isNew = known.emplace(operation, part).second;
                if (!ofOne && isNew) {
                    result.insert({operation, part, several, ""});
                }
            }
            if (ofOne) {
                result.insert(row);
            }
        }
    }
    return result;
}

/// Returns a string such as "zmq_poll: EFAULT EINTR".
std::string textOf(const std::string& cause, const std::set<std::string>& errors) {
    if (errors.count("") != 0) {
        return cause;
    }
    std::string text = cause + ":";
    if (errors == errorsOf(cause)) {
        return text + " *";
    }
    for (const std::string& error : errors) {
        text += " " + error;
    }
    return text;
}

} // namespace

const char* const several = "several";

std::string nameOf(int error) {
    switch (error) {
    case readyForNothing:
        return "no-event";
    case readyInError:
        return "error-event";
    case EFSM:
        return "EFSM";
    case ETERM:
        return "ETERM";
    case EMTHREAD:
        return "EMTHREAD";
    case ENOCOMPATPROTO:
        return "ENOCOMPATPROTO";
    default:
        return strerrorname_np(error);
    }
}

std::vector<std::string> split(const std::string& text, const std::string& separator) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = text.find(separator, begin)) != std::string::npos;
         begin = end + separator.size()) {
        parts.push_back(text.substr(begin, end - begin));
    }
    parts.push_back(text.substr(begin));
    return parts;
}

bool Row::operator<(const Row& other) const {
    return std::tie(operation, outcome, cause, error) <
           std::tie(other.operation, other.outcome, other.cause, other.error);
}

Outcomes& Outcomes::instance() {
    return immortal<Outcomes>();
}

void Outcomes::load(const std::string& file, bool records) {
    isRecording = records;
    std::ifstream input(file);
    for (std::string line; std::getline(input, line);) {
        const std::vector<std::string> fields = split(line, " | ");
        if (line.empty() || line.front() == '#' || fields.size() != 3) {
            continue;
        }
        for (std::string cause : split(fields[2], ", ")) {
            const bool isChance = cause.front() == '~';
            cause.erase(0, isChance ? 1 : 0);
            const std::vector<std::string> words = split(cause, ": ");
            std::set<std::string> errors{""};
            if (words.size() == 2) {
                const auto names = split(words[1], " ");
                errors = words[1] == "*" ? errorsOf(words[0]) : std::set<std::string>(names.begin(), names.end());
            }
            for (const std::string& error : errors) {
                rows[{fields[0], fields[1], words[0], error}] = isChance;
            }
        }
        for (const std::string& part : split(fields[1], "; ")) {
            (isLine(part) ? lines : parts[fields[0]]).insert(part);
        }
    }
}

void Outcomes::write(const std::string& file, std::set<Row> seen) const {
    std::ofstream output(file);
    output << "# The recorded outcomes: operation | outcome | failures that cause it. scripts/prove faults writes this "
              "file.\n"
              "#\n"
              "# E is the error's message, * is every error in the function's documentation, ~ means that it depends "
              "on timing.\n"
              "# \"nothing\" is the outcome without the failure. \"several\" is a part that only several failures "
              "cause.\n";
    seen = withoutKnownParts(seen);
    std::map<std::pair<std::string, std::string>, std::map<std::string, std::set<std::string>>> table;
    const auto add = [&](const Row& row, bool isChance) {
        table[{row.operation, row.outcome}][(isChance ? "~" : "") + row.cause].insert(row.error);
    };
    for (const Row& row : seen) {
        const auto known = rows.find(row);
        add(row, known != rows.end() && known->second);
    }
    for (const auto& [row, isChance] : rows) {
        if (seen.count(row) == 0) {
            add(row, row.cause != several);
        }
    }
    for (const auto& [key, causes] : table) {
        std::string text;
        for (const auto& [cause, errors] : causes) {
            text += (text.empty() ? "" : ", ") + textOf(cause, errors);
        }
        output << key.first << " | " << key.second << " | " << text << "\n";
    }
}

bool Outcomes::holds(const Row& row) const {
    return isRecording || rows.count(row) != 0;
}

bool Outcomes::holdsParts(const std::string& operation, const std::string& outcome) const {
    const auto known = parts.find(operation);
    const auto found = split(outcome, "; ");
    return isRecording || std::all_of(found.begin(), found.end(), [&](const std::string& part) {
               return isLine(part) ? lines.count(part) != 0 : known != parts.end() && known->second.count(part) != 0;
           });
}

std::string Outcomes::expected(const Row& row) const {
    std::string text;
    for (const auto& [known, isChance] : rows) {
        if (known.operation == row.operation && known.cause == row.cause && known.error == row.error) {
            text += (text.empty() ? "" : ", or ") + known.outcome;
        }
    }
    return text.empty() ? "nothing on record" : text;
}

std::vector<std::string> Outcomes::missing(const std::set<Row>& seen) const {
    std::vector<std::string> texts;
    for (const auto& [row, isChance] : rows) {
        if (!isChance && row.cause != several && seen.count(row) == 0) {
            texts.push_back(row.operation + " | " + row.outcome + " | " + row.cause + ": " + row.error);
        }
    }
    return texts;
}

} // namespace rk::tests
