#pragma once

#include "soak/ProcessUse.h"
#include "soak/Trend.h"

#include <array>
#include <optional>
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

/// The least that was held in each of forty stretches of a run. What comes and goes, say a restart under way, is not
/// seen; what has leaked is in every stretch. The record does not grow itself.
class Record {
public:
    Record(double warmUpSeconds, double runSeconds);

    void add(double time, const ProcessUse& use);

    /// Resident and allocated memory, descriptors and threads; none when the run was too short to tell.
    std::vector<Growth> growth() const;

private:
    static constexpr std::size_t stretches = 40;
    static constexpr std::size_t enough = 10;

    Growth growthOf(const std::string& name, double ProcessUse::*quantity, double limit) const;

    const double warmUp;
    const double end;
    std::array<std::optional<ProcessUse>, stretches> least;
};

} // namespace rk::tests::soak
