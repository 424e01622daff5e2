/// The library behind a pipe: reads a command a line, carries it out, and answers with a line: "ok" and what there is to
/// tell, or "error" and the text that was thrown. Bytes are written in hexadecimal digits.

#include "Hexadecimal.h"
#include "Servers.h"
#include "support/messages.pb.h"

#include <rk/socket/Socket.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace rk::tests {

namespace {

using socket::Socket;
namespace Protocol = socket::Protocol;

/// What stands behind the verb of a command, word by word.
class Words {
public:
    explicit Words(const std::string& line) : stream(line) {}

    template <class Value = std::string>
    Value next() {
        Value value;
        if (!(stream >> value)) {
            throw std::runtime_error("a word is missing");
        }
        return value;
    }

    std::string rest() {
        std::string text;
        std::getline(stream >> std::ws, text);
        return text;
    }

private:
    std::istringstream stream;
};

class Peer {
public:
    std::string answer(const std::string& line) {
        Words words(line);
        const auto first = words.next();
        const auto found = verbs.find(first);
        if (found == verbs.end()) {
            throw std::runtime_error("no such command: " + first);
        }
        return found->second(words);
    }

private:
    Socket& socketOf(Words& words) { return *sockets.at(words.next()); }

    std::string open(Words& words) {
        const auto name = words.next();
        const auto policy = static_cast<socket::ClosePolicy::ClosePolicy>(words.next<int>());
        sockets[name] = std::make_unique<Socket>(name, policy);
        return {};
    }

    std::string create(Words& words) {
        Socket& socket = socketOf(words);
        socket.create(Protocol::FromString(words.next()));
        return {};
    }

    std::string connect(Words& words) {
        Socket& socket = socketOf(words);
        const auto endpoint = socket::SocketEndpoint::FromString(words.next());
        socket.connect(endpoint, words.next<unsigned int>());
        return {};
    }

    std::string setQueue(Words& words) {
        Socket& socket = socketOf(words);
        socket.setInternalFifoSize(words.next<int>());
        return {};
    }

    std::string close(Words& words) {
        socketOf(words).close();
        return {};
    }

    std::string send(Words& words) {
        Socket& socket = socketOf(words);
        std::string block = fromHexadecimal(words.next());
        socket.send(block.data(), block.size());
        return {};
    }

    std::string receive(Words& words) {
        Socket& socket = socketOf(words);
        std::string buffer(words.next<std::size_t>(), '\0');
        const auto length = static_cast<std::size_t>(socket.receive(buffer.data(), buffer.size()));
        buffer.resize(std::min(length, buffer.size()));
        return std::to_string(length) + " " + toHexadecimal(buffer);
    }

    std::string sendCommand(Words& words) {
        Socket& socket = socketOf(words);
        Command command;
        command.set_id(words.next<int>());
        command.mutable_header()->set_time(words.next<double>());
        command.set_payload(fromHexadecimal(words.next()));
        socket.sendProtoBuf(&command);
        return {};
    }

    std::string receiveCommand(Words& words) {
        Socket& socket = socketOf(words);
        Command command;
        socket.receiveProtoBuf(&command, words.next<unsigned int>());
        return std::to_string(command.id()) + " " + std::to_string(command.header().time()) + " " +
               toHexadecimal(command.payload());
    }

    std::string poll(Words& words) {
        Socket& socket = socketOf(words);
        std::string error;
        return std::to_string(socket.poll(words.next<unsigned int>(), error)) + " " + error;
    }

    /// Carries the command behind the number out so many times.
    std::string repeat(Words& words) {
        const auto times = words.next<int>();
        const auto command = words.rest();
        for (int done = 0; done < times; ++done) {
            try {
                answer(command);
            } catch (const std::exception& failure) {
                throw std::runtime_error("after " + std::to_string(done) + ": " + failure.what());
            }
        }
        return {};
    }

    std::string serve(Words& words) {
        const auto name = words.next();
        const auto size = words.next<std::size_t>();
        servers[name] = std::make_unique<BlockServer>(std::move(sockets.at(name)), size);
        return {};
    }

    std::string listen(Words& words) {
        const auto name = words.next();
        const auto pattern = Protocol::FromString(words.next());
        auto listener = std::make_unique<CommandListener>(pattern, name);
        std::string error;
        if (!listener->addListenEndpoint(words.next(), error) || !listener->start(error)) {
            throw std::runtime_error(error);
        }
        listeners[name] = std::move(listener);
        return {};
    }

    std::string count(Words& words) { return std::to_string(listeners.at(words.next())->count()); }

    using Verb = std::function<std::string(Words&)>;
    Verb verb(std::string (Peer::*operation)(Words&)) {
        return [this, operation](Words& words) { return (this->*operation)(words); };
    }

    std::map<std::string, std::unique_ptr<Socket>> sockets;
    std::map<std::string, std::unique_ptr<BlockServer>> servers;
    std::map<std::string, std::unique_ptr<CommandListener>> listeners;
    const std::map<std::string, Verb> verbs{
        {"open", verb(&Peer::open)},
        {"create", verb(&Peer::create)},
        {"connect", verb(&Peer::connect)},
        {"queue", verb(&Peer::setQueue)},
        {"close", verb(&Peer::close)},
        {"send", verb(&Peer::send)},
        {"receive", verb(&Peer::receive)},
        {"send-command", verb(&Peer::sendCommand)},
        {"receive-command", verb(&Peer::receiveCommand)},
        {"poll", verb(&Peer::poll)},
        {"repeat", verb(&Peer::repeat)},
        {"serve", verb(&Peer::serve)},
        {"listen", verb(&Peer::listen)},
        {"count", verb(&Peer::count)},
    };
};

} // namespace

} // namespace rk::tests

int main() {
    rk::tests::Peer peer;
    for (std::string line; std::getline(std::cin, line);) {
        try {
            const std::string answer = peer.answer(line);
            std::cout << "ok " << answer << std::endl;
        } catch (const std::exception& failure) {
            std::cout << "error " << failure.what() << std::endl;
        }
    }
}
