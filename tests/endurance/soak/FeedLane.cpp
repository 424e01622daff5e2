#include "endurance/TextListener.h"
#include "endurance/soak/Lane.h"

#include <rk/socket/Socket.h>

#include <condition_variable>
#include <mutex>
#include <stdexcept>

namespace rk::tests::soak {

namespace {

constexpr unsigned burst = 20;
constexpr std::chrono::milliseconds betweenGreetings{10};

class FeedLane : public Lane {
public:
    FeedLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& allFigures)
        : Lane("feed", std::chrono::milliseconds(100), transport, seed, allFigures),
          reader(socket::Protocol::Sub, name + "-reader",
                 [this](const Text& message, const socket::Socket& /*socket*/) { read(std::stoull(message.text())); }),
          publisher(name + "-publisher", socket::ClosePolicy::WaitForDelivery) {
        publisher.createAndConnect(socket::Protocol::Pub, endpoint, 0);
        reader.startOn({endpoint.toString(socket::Protocol::Sub)});
        join();
    }

    void step() override {
        if (onceIn(60)) {
            restartReader();
        } else if (onceIn(20)) {
            rebuildPublisher();
        } else {
            publishBurst();
            waitForAll();
        }
    }

private:
    /// Checks that the numbers increase, and by one once the reader has joined. Throws at every hundredth.
    void read(std::uint64_t received) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (received <= last || (joined && received != last + 1)) {
            breach("message " + std::to_string(received) + " comes after " + std::to_string(last));
        }
        ++figures.published;
        last = received;
        changed.notify_all();
        if (received % 100 == 0) {
            ++figures.failures;
            throw std::runtime_error("as every hundredth time");
        }
    }

    void setJoined(bool nothingMayBeMissed) {
        const std::lock_guard<std::mutex> lock(mutex);
        joined = nothingMayBeMissed;
    }

    /// Returns whether the latest message arrives in time.
    bool arrives(std::uint64_t expected, std::chrono::milliseconds time) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, time, [&] { return last >= expected; });
    }

    void waitForAll() {
        if (!arrives(number, patience)) {
            breach("message " + std::to_string(number) + " is lost");
        }
    }

    /// Publishes until the first message has arrived. From then on, every message must arrive.
    void join() {
        const std::uint64_t first = number + 1;
        const auto deadline = std::chrono::steady_clock::now() + patience;
        do {
            if (std::chrono::steady_clock::now() > deadline) {
                breach("the subscriber does not join");
                return;
            }
            publish();
        } while (!arrives(first, betweenGreetings));
        waitForAll();
        setJoined(true);
    }

    void restartReader() {
        setJoined(false);
        std::string error;
        if (!reader.stop(error) || !reader.start(error)) {
            breach("cannot restart the subscriber: " + error);
        }
        ++figures.restarts;
        join();
    }

    /// The close policy keeps the unsent messages of the replaced socket.
    void rebuildPublisher() {
        publishBurst();
        publisher.resetConnections();
        waitForAll();
        ++figures.restarts;
        setJoined(false);
        if (reconnectsByItself) {
            join();
        } else {
            restartReader();
        }
    }

    void publishBurst() {
        for (unsigned i = 0; i < burst; ++i) {
            publish();
        }
    }

    void publish() {
        Text message;
        message.set_text(std::to_string(++number));
        publisher.sendProtoBuf(&message);
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::uint64_t last = 0;
    bool joined = false;
    std::uint64_t number = 0;
    TextListener reader;
    socket::Socket publisher;
};

} // namespace

std::unique_ptr<Lane> makeFeedLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& figures) {
    return std::make_unique<FeedLane>(transport, seed, figures);
}

} // namespace rk::tests::soak
