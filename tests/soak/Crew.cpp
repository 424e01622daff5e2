#include "soak/Crew.h"

#include "soak/ClosingLane.h"
#include "soak/FeedLane.h"
#include "soak/Patience.h"
#include "soak/RequestLane.h"

#include <exception>

namespace rk::tests::soak {

Crew::Crew(std::uint64_t seed, Figures& allFigures) : figures(allFigures) {
    for (const auto transport : {socket::Transport::Tcp, socket::Transport::Ipc, socket::Transport::Inproc}) {
        lanes.push_back(std::make_unique<RequestLane>(transport, ++seed, figures));
        lanes.push_back(std::make_unique<FeedLane>(transport, ++seed, figures));
        lanes.push_back(std::make_unique<ClosingLane>(transport, ++seed, figures));
    }
    for (const auto& lane : lanes) {
        ends.push_back(std::async(std::launch::async, [this, &lane = *lane] { work(lane); }));
    }
}

void Crew::work(Lane& lane) {
    try {
        while (!isStoppedWithin(lane.pause())) {
            lane.step();
        }
    } catch (const std::exception& failure) {
        figures.breach(lane.name() + ": " + failure.what());
    }
}

bool Crew::isStoppedWithin(std::chrono::milliseconds time) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, time, [this] { return stopped; });
}

std::vector<std::string> Crew::stop() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        stopped = true;
    }
    changed.notify_all();
    const auto deadline = std::chrono::steady_clock::now() + 3 * patience;
    std::vector<std::string> hanging;
    for (std::size_t i = 0; i < lanes.size(); ++i) {
        if (ends[i].wait_until(deadline) != std::future_status::ready) {
            hanging.push_back(lanes[i]->name());
        }
    }
    return hanging;
}

} // namespace rk::tests::soak
