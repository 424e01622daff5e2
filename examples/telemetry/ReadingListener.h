#pragma once

#include "ReadingLog.h"

#include <rk/socket/utils/SocketListener.h>

#include <memory>

namespace telemetry {

/// Subscribes to the station's readings and keeps a log of them, with statistics of the socket switched on.
class ReadingListener : public rk::socket::utils::SocketListener {
public:
    explicit ReadingListener(ReadingLog& log);

    /// Stops the listener while the members that its handler uses are still there.
    ~ReadingListener() override;

    std::shared_ptr<google::protobuf::Message> createMessage() override;
    void handleMessage(google::protobuf::Message* message, std::shared_ptr<rk::socket::Socket> socket) override;

private:
    ReadingLog& log;
    bool statisticsOn = false;
};

} // namespace telemetry
