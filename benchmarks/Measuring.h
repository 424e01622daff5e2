#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace rk::benchmarks {

/// Measures the time since its construction.
class Stopwatch {
public:
    double nanoseconds() const {
        return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - begin).count();
    }
    double seconds() const { return nanoseconds() / 1e9; }

private:
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
};

using Texts = std::vector<std::pair<std::string, std::string>>;
using Numbers = std::vector<std::pair<std::string, double>>;

/// Writes a sample to standard output, as a JSON object on one line.
void write(const Texts& texts, const Numbers& numbers);

double medianOf(std::vector<double> values);

/// \throws std::runtime_error `what` + " failed" unless `good`
void require(bool good, const char* what);

/// Keeps the calling thread, and the threads that it starts later, on one core.
void pinToCore(unsigned int core);

/// Returns the URL of an unused address.
std::string freshUrl(const std::string& transport);

} // namespace rk::benchmarks
