#pragma once

namespace rk::tests::soak {

/// What this process holds at a moment.
struct ProcessUse {
    double residentKiB = 0;
    double allocatedKiB = 0; ///< by `new` and `malloc`, without what the allocator keeps for later
    double descriptors = 0;
    double threads = 0;
    double processorSeconds = 0; ///< since its start
};

ProcessUse processUse();

} // namespace rk::tests::soak
