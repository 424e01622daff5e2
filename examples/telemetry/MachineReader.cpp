#include "MachineReader.h"

#include <cctype>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace telemetry {

namespace {

[[noreturn]] void refuse(const std::string& file) {
    throw std::runtime_error("Cannot read " + file);
}

std::ifstream open(const std::string& file) {
    std::ifstream stream(file);
    if (!stream) {
        refuse(file);
    }
    return stream;
}

bool isCore(const std::string& label) {
    return label.size() > 3 && label.compare(0, 3, "cpu") == 0 && std::isdigit(static_cast<unsigned char>(label[3]));
}

void skipLine(std::istream& stream) {
    stream.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
}

} // namespace

MachineReader::MachineReader(const std::string& processFileSystem) : root(processFileSystem) {}

void MachineReader::read(Reading& reading) const {
    using std::chrono::duration_cast, std::chrono::microseconds, std::chrono::steady_clock;
    reading.set_time_us(duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count());
    readLoad(reading);
    readMemory(reading);
    readCores(reading);
    readNetwork(reading);
}

/// "0.46 0.53 0.30 1/87 32317": the first three are the means of the last one, five and fifteen minutes.
void MachineReader::readLoad(Reading& reading) const {
    const std::string file = root + "/loadavg";
    std::ifstream stream = open(file);
    double load = 0;
    if (!(stream >> load)) {
        refuse(file);
    }
    reading.set_load(load);
}

/// Lines such as "MemTotal:       24684084 kB".
void MachineReader::readMemory(Reading& reading) const {
    const std::string file = root + "/meminfo";
    std::ifstream stream = open(file);
    std::string label;
    std::uint64_t kib = 0;
    while ((reading.memory_total_kib() == 0 || reading.memory_available_kib() == 0) && stream >> label >> kib) {
        if (label == "MemTotal:") {
            reading.set_memory_total_kib(kib);
        } else if (label == "MemAvailable:") {
            reading.set_memory_available_kib(kib);
        }
        skipLine(stream);
    }
    if (reading.memory_total_kib() == 0) {
        refuse(file);
    }
}

/// Lines such as "cpu0 user nice system idle iowait irq softirq steal guest guest_nice". User time includes guest time.
void MachineReader::readCores(Reading& reading) const {
    const std::string file = root + "/stat";
    std::ifstream stream = open(file);
    std::string label;
    while (stream >> label && label.compare(0, 3, "cpu") == 0) {
        std::uint64_t user = 0, nice = 0, system = 0, idle = 0, iowait = 0, irq = 0, softirq = 0, steal = 0;
        if (!(stream >> user >> nice >> system >> idle >> iowait >> irq >> softirq >> steal)) {
            refuse(file);
        }
        skipLine(stream);
        if (isCore(label)) {
            Reading::Core& core = *reading.add_cores();
            const std::uint64_t busy = user + nice + system + irq + softirq + steal;
            core.set_busy_ticks(busy);
            core.set_total_ticks(busy + idle + iowait);
        }
    }
    if (reading.cores().empty()) {
        refuse(file);
    }
}

/// Two title lines, then one line per interface: the name, received bytes and seven more, sent bytes and seven more.
void MachineReader::readNetwork(Reading& reading) const {
    const std::string file = root + "/net/dev";
    std::ifstream stream = open(file);
    skipLine(stream);
    skipLine(stream);
    for (std::string line; std::getline(stream, line);) {
        std::istringstream columns(line.substr(line.find(':') + 1));
        std::uint64_t received = 0, skipped = 0, sent = 0;
        columns >> received;
        for (int column = 0; column < 7; ++column) {
            columns >> skipped;
        }
        if (!(columns >> sent)) {
            refuse(file);
        }
        reading.set_received_bytes(reading.received_bytes() + received);
        reading.set_sent_bytes(reading.sent_bytes() + sent);
    }
}

} // namespace telemetry
