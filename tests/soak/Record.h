#pragma once

#include "soak/ProcessUse.h"
#include "soak/Trend.h"

#include <string>
#include <vector>

namespace rk::tests::soak {

/// What became of one quantity between the end of the warm-up and the end of the run.
struct Growth {
    std::string name;
    Trend trend;      ///< over seconds
    double span = 0;  ///< in seconds
    double limit = 0; ///< what it may grow by within the span

    double grown() const { return trend.slope * span; }
    double error() const { return trend.error * span; }
    /// Fails only on a growth that cannot be chance.
    bool isFlat() const { return grown() - 2 * error() <= limit; }
};

/// The samples of a run.
class Record {
public:
    explicit Record(double warmUpSeconds) : warmUp(warmUpSeconds) {}

    void add(double time, const ProcessUse& use);

    /// Resident and allocated memory, descriptors and threads; none when the run was too short to tell.
    std::vector<Growth> growth() const;

private:
    const double warmUp;
    std::vector<Point> resident;
    std::vector<Point> allocated;
    std::vector<Point> descriptors;
    std::vector<Point> threads;
};

} // namespace rk::tests::soak
