#pragma once

#include <rk/socket/SocketEndpoint.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

namespace rk::tests {

/// Forwards one TCP connection to a port of this machine, and records the bytes of both directions.
class RecordingProxy {
public:
    explicit RecordingProxy(unsigned short target);
    ~RecordingProxy();
    RecordingProxy(const RecordingProxy&) = delete;
    RecordingProxy& operator=(const RecordingProxy&) = delete;

    /// Where to connect instead.
    const socket::SocketEndpoint& endpoint() const { return front; }

    std::string bytes() const;

private:
    void forward(unsigned short target);

    const socket::SocketEndpoint front;
    const int listener;
    std::atomic<bool> ending{false};
    mutable std::mutex mutex;
    std::string recorded;
    std::thread thread;
};

} // namespace rk::tests
