#pragma once

#include "Schedule.h"
#include "telemetry.pb.h"

#include <rk/socket/utils/SocketListener.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace telemetry {

/// Serves the operator's commands: changes the schedule, and answers each.
class CommandListener : public rk::socket::utils::SocketListener {
public:
    explicit CommandListener(Schedule& schedule);

    /// Stops the listener while the members that its handler uses are still there.
    ~CommandListener() override;

    std::shared_ptr<google::protobuf::Message> createMessage() override;
    void handleMessage(google::protobuf::Message* message, std::shared_ptr<rk::socket::Socket> socket) override;

    /// How many commands have been answered so far.
    std::uint64_t served() const;

private:
    std::string obey(const Command& command);
    std::string setInterval(std::uint32_t milliseconds);

    Schedule& schedule;
    std::atomic<std::uint64_t> servedCount{0};
};

} // namespace telemetry
