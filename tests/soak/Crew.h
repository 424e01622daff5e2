#pragma once

#include "soak/Lane.h"

#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace rk::tests::soak {

/// All lanes, each at work on a thread of its own.
class Crew {
public:
    Crew(std::uint64_t seed, Figures& figures);

    /// The lanes that do not come to an end; they are still at work then, and the process can only be left.
    std::vector<std::string> stop();

private:
    void work(Lane& lane);
    bool isStoppedWithin(std::chrono::milliseconds time);

    Figures& figures;
    std::mutex mutex;
    std::condition_variable changed;
    bool stopped = false;
    std::vector<std::unique_ptr<Lane>> lanes;
    std::vector<std::future<void>> ends; ///< of the lanes, in their order
};

} // namespace rk::tests::soak
