#pragma once

#include "telemetry.pb.h"

#include <string>

namespace telemetry {

/// Reads the state of the machine from /proc.
class MachineReader {
public:
    explicit MachineReader(const std::string& root = "/proc");

    /// Fills in everything but the sequence number.
    /// \throws std::runtime_error "Cannot read " + file
    void read(Reading& reading) const;

private:
    void readLoad(Reading& reading) const;
    void readMemory(Reading& reading) const;
    void readCores(Reading& reading) const;
    void readNetwork(Reading& reading) const;

    std::string root;
};

} // namespace telemetry
