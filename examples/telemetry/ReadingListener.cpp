#include "ReadingListener.h"

#include "telemetry.pb.h"

#include <rk/socket/Socket.h>

#include <string>

namespace telemetry {

ReadingListener::ReadingListener(ReadingLog& readingLog)
    : SocketListener(rk::socket::Protocol::Sub, "operator readings"), log(readingLog) {}

ReadingListener::~ReadingListener() {
    std::string ignored;
    ReadingListener::stop(ignored);
}

std::shared_ptr<google::protobuf::Message> ReadingListener::createMessage() {
    return std::make_shared<Reading>();
}

void ReadingListener::handleMessage(google::protobuf::Message* message, std::shared_ptr<rk::socket::Socket> socket) {
    if (!statisticsOn) {
        socket->activateStatistics(true);
        statisticsOn = true;
    }
    log.add(static_cast<const Reading&>(*message));
}

} // namespace telemetry
