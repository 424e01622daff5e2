#include "Servers.h"

#include "support/messages.pb.h"

#include <rk/socket/Socket.h>
#include <rk/utils/Log.h>

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

namespace rk::tests {

BlockServer::BlockServer(std::unique_ptr<socket::Socket> replier, std::size_t size)
    : socket(std::move(replier)), block(size, '\0'), thread([this] { serve(); }) {}

BlockServer::~BlockServer() {
    stopRequested = true;
    thread.join();
}

void BlockServer::serve() {
    while (!stopRequested) {
        try {
            serveOne();
        } catch (const std::exception& failure) {
            rk::utils::logError(std::string("Failed serving: ") + failure.what());
        }
    }
}

void BlockServer::serveOne() {
    std::string error;
    switch (socket->poll(100, error)) {
    case socket::PollResult::Input: {
        const auto length = static_cast<std::size_t>(socket->receive(block.data(), block.size()));
        const auto size = std::min(length, block.size());
        std::reverse(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(size));
        socket->send(block.data(), size);
        break;
    }
    case socket::PollResult::Timeout:
        break;
    case socket::PollResult::Failure:
        throw std::runtime_error(error);
    }
}

CommandListener::CommandListener(socket::Protocol::Protocol pattern, const std::string& listenerName)
    : SocketListener(pattern, listenerName), replies(pattern == socket::Protocol::Rep) {}

CommandListener::~CommandListener() {
    std::string ignored;
    stop(ignored);
}

int CommandListener::count() const {
    return handled;
}

std::shared_ptr<google::protobuf::Message> CommandListener::createMessage() {
    return std::make_shared<Command>();
}

void CommandListener::handleMessage(google::protobuf::Message* message, std::shared_ptr<socket::Socket> socket) {
    ++handled;
    if (replies) {
        auto& command = dynamic_cast<Command&>(*message);
        command.set_id(command.id() + 1);
        std::reverse(command.mutable_payload()->begin(), command.mutable_payload()->end());
        socket->sendProtoBuf(&command);
    }
}

} // namespace rk::tests
