#include "Report.h"

#include <cstdio>

namespace rk::benchmarks {

Sample& Sample::text(const std::string& key, const std::string& value) {
    members.emplace_back(key, "\"" + value + "\"");
    return *this;
}

Sample& Sample::number(const std::string& key, double value) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.9g", value);
    members.emplace_back(key, digits);
    return *this;
}

void Sample::write() const {
    std::string line;
    for (const auto& [key, value] : members) {
        line.append(line.empty() ? "{\"" : ", \"").append(key).append("\": ").append(value);
    }
    std::puts(line.append("}").c_str());
    std::fflush(stdout);
}

} // namespace rk::benchmarks
