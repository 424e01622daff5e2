#pragma once

#include <string>
#include <utility>
#include <vector>

namespace rk::benchmarks {

/// Writes what was measured to standard output, each sample as a line that holds a JSON object.
class Sample {
public:
    Sample& text(const std::string& key, const std::string& value);
    Sample& number(const std::string& key, double value);
    void write() const;

private:
    std::vector<std::pair<std::string, std::string>> members;
};

} // namespace rk::benchmarks
