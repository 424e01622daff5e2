#include "Measuring.h"

#include "support/Endpoints.h"

#include <rk/socket/Transport.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <sched.h>
#include <stdexcept>
#include <thread>

namespace rk::benchmarks {

void write(const Texts& texts, const Numbers& numbers) {
    std::string line;
    for (const auto& [key, value] : texts) {
        line.append(", \"").append(key).append("\": \"").append(value).append("\"");
    }
    for (const auto& [key, value] : numbers) {
        char digits[32];
        std::snprintf(digits, sizeof digits, "%.9g", value);
        line.append(", \"").append(key).append("\": ").append(digits);
    }
    std::puts(line.replace(0, 2, "{").append("}").c_str());
    std::fflush(stdout);
}

double medianOf(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void require(bool good, const char* what) {
    if (!good) {
        throw std::runtime_error(std::string(what) + " failed");
    }
}

void pinToCore(unsigned int core) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(core % std::thread::hardware_concurrency(), &cores);
    ::sched_setaffinity(0, sizeof cores, &cores);
}

std::string freshUrl(const std::string& transport) {
    return tests::freshEndpoint(socket::Transport::FromString(transport)).toString(socket::Protocol::Req);
}

} // namespace rk::benchmarks
