#pragma once

#include "soak/Lane.h"

#include <rk/socket/Socket.h>
#include <rk/socket/utils/SocketListener.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

namespace rk::tests::soak {

/// Checks that the numbers of a feed rise, by one once it has joined; fails on every hundredth.
class Reader : public socket::utils::SocketListener {
public:
    Reader(const std::string& readerName, Figures& figures, std::function<void(const std::string&)> breach);
    ~Reader() override;

    std::shared_ptr<google::protobuf::Message> createMessage() override;
    void handleMessage(google::protobuf::Message* message, std::shared_ptr<socket::Socket> socket) override;

    void setJoined(bool nothingMayBeMissed);

    /// Whether message `number`, or a later one, comes in time.
    bool waitFor(std::uint64_t number, std::chrono::milliseconds time) const;

private:
    void check(std::uint64_t number);

    Figures& figures;
    const std::function<void(const std::string&)> breach;
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::uint64_t last = 0;
    bool joined = false;
};

/// A publisher and a subscribe listener. Both are restarted, the handler fails; from the moment when the subscription
/// has arrived until the next restart, every message arrives, once and in order.
class FeedLane : public Lane {
public:
    FeedLane(socket::Transport::Transport transport, std::uint64_t seed, Figures& figures);

    void step() override;
    std::chrono::milliseconds pause() const override { return std::chrono::milliseconds(100); }

private:
    void join();
    void restartReader();
    void rebuildPublisher();
    void publishBurst();
    void publish();
    void waitForAll();

    Reader reader;
    socket::Socket publisher;
    std::uint64_t number = 0;
};

} // namespace rk::tests::soak
