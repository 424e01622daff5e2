#pragma once

#include "SystemSockets.h"

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

    /// Returns the endpoint of the proxy.
    const socket::SocketEndpoint& endpoint() const { return front; }

    std::string bytesOfClient() const { return bytesFrom(0); }
    std::string bytesOfServer() const { return bytesFrom(1); }

private:
    std::string bytesFrom(int side) const;
    void forward(unsigned short target);

    const socket::SocketEndpoint front;
    const SystemListener listener;
    std::atomic<bool> ending{false};
    mutable std::mutex mutex;
    std::string recorded[2];
    std::thread thread;
};

} // namespace rk::tests
