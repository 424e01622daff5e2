#pragma once

#include "telemetry.pb.h"

#include <string>

namespace telemetry {

/// Summarizes the time between two readings, for example "load 0.46   memory 326 of 24105 MiB   cpu  12 %   3 %
/// network 5.1 kB/s in 5.1 kB/s out".
std::string summary(const Reading& before, const Reading& now);

} // namespace telemetry
