// The station publishes readings of its machine and serves commands until SIGINT or SIGTERM.

#include "Commands.h"
#include "MachineReader.h"
#include "Schedule.h"
#include "StopSignals.h"
#include "telemetry.pb.h"

#include <rk/socket/Network.h>
#include <rk/socket/Socket.h>
#include <rk/socket/utils/Replier.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

namespace telemetry {

namespace {

using rk::socket::Socket;
using rk::socket::SocketEndpoint;
namespace ClosePolicy = rk::socket::ClosePolicy;
namespace Network = rk::socket::Network;
namespace Protocol = rk::socket::Protocol;

constexpr std::chrono::milliseconds firstInterval{50};
constexpr unsigned int peerTimeoutSeconds = 10;
constexpr std::int64_t largestCommand = 4096;
constexpr int exitUsage = 2;
constexpr int exitCannotListen = 3;

/// Thrown if the station cannot bind an endpoint, for example because the address is in use.
class CannotListen : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

void startPublishing(Socket& socket, const std::string& endpoint) {
    try {
        socket.createAndConnect(Protocol::Pub, SocketEndpoint::FromString(endpoint), 0);
        socket.activateStatistics(true);
    } catch (const std::exception& failure) {
        throw CannotListen(failure.what());
    }
}

void startServing(rk::socket::utils::SocketListener& listener, const std::string& endpoint) {
    std::string error;
    if (!listener.addListenEndpoint(endpoint, error) || !listener.start(error)) {
        throw CannotListen(error);
    }
}

void publish(Socket& readings, Schedule& schedule) {
    const MachineReader machine;
    while (const auto sequence = schedule.waitForNext()) {
        Reading reading;
        machine.read(reading);
        reading.set_sequence(*sequence);
        readings.sendProtoBuf(reading);
    }
}

void setUpNetwork() {
    Network::listenOn(""); // where the endpoints say
    Network::setPeerTimeout(peerTimeoutSeconds);
    Network::setMaxMessageSize(largestCommand);
}

void run(const std::string& readingsEndpoint, const std::string& commandsEndpoint) {
    setUpNetwork();
    Schedule schedule(firstInterval);
    const StopSignals signals([&schedule] { schedule.stop(); });

    Commands commands(schedule);
    rk::socket::utils::Replier<Command, Answer> service(
        "station commands", [&](const Command& command, Answer& answer) { commands.handle(command, answer); });
    startServing(service, commandsEndpoint);
    Socket readings("station readings", ClosePolicy::LingerTwoSeconds);
    startPublishing(readings, readingsEndpoint);
    std::cout << "station:  publishes on " << readingsEndpoint << ", takes commands on " << commandsEndpoint
              << std::endl;

    publish(readings, schedule);
    std::cout << "station:  sent " << schedule.state().lastSequence << " readings, answered " << commands.served()
              << " commands" << std::endl;
}

} // namespace

} // namespace telemetry

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: " << argv[0] << " READINGS_ENDPOINT COMMANDS_ENDPOINT\n"
                  << "for instance: " << argv[0] << " 'tcp://*:5555' 'tcp://*:5556'" << std::endl;
        return telemetry::exitUsage;
    }
    try {
        telemetry::run(argv[1], argv[2]);
        return EXIT_SUCCESS;
    } catch (const telemetry::CannotListen& failure) {
        std::cerr << "station:  " << failure.what() << std::endl;
        return telemetry::exitCannotListen;
    } catch (const std::exception& failure) {
        std::cerr << "station:  " << failure.what() << std::endl;
        return EXIT_FAILURE;
    }
}
