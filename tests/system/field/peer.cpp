/// Drives the library through a pipe. Reads one command per line, executes it, and writes one line: "ok" and the
/// result, or "error" and the message of the exception. Bytes are written as hexadecimal digits, and no bytes as "-".

#include "support/messages.pb.h"

#include <rk/socket/Network.h>
#include <rk/socket/Security.h>
#include <rk/socket/Socket.h>
#include <rk/socket/utils/Replier.h>
#include <rk/utils/Log.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace rk::tests {

namespace {

using socket::Socket;
namespace Protocol = socket::Protocol;

std::string toHexadecimal(const std::string& bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4];
        text += digits[static_cast<unsigned char>(byte) & 15];
    }
    return text.empty() ? "-" : text;
}

std::string fromHexadecimal(const std::string& text) {
    std::string bytes(text.size() / 2, '\0');
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        unsigned char value = 0;
        const char* const end = text.data() + 2 * index + 2;
        if (std::from_chars(end - 2, end, value, 16).ptr != end) {
            throw std::runtime_error("not hexadecimal");
        }
        bytes[index] = static_cast<char>(value);
    }
    return bytes;
}

/// Replies to each block with its bytes in reverse, on a separate thread. Continues after an error.
class BlockServer {
public:
    /// \param replier a bound reply socket
    /// \param size the size of the longest block
    BlockServer(std::unique_ptr<Socket> replier, std::size_t size)
        : socket(std::move(replier)), block(size, '\0'), thread([this] { serve(); }) {}
    ~BlockServer() {
        stopRequested = true;
        thread.join();
    }
    BlockServer(const BlockServer&) = delete;
    BlockServer& operator=(const BlockServer&) = delete;

private:
    void serve() {
        while (!stopRequested) {
            try {
                serveOne();
            } catch (const std::exception& failure) {
                rk::utils::logError(std::string("Failed serving: ") + failure.what());
            }
        }
    }

    void serveOne() {
        std::string error;
        const auto result = socket->poll(100, error);
        if (result == socket::PollResult::Failure) {
            throw std::runtime_error(error);
        }
        if (result == socket::PollResult::Input) {
            const auto length = static_cast<std::size_t>(socket->receive(block.data(), block.size()));
            const auto size = std::min(length, block.size());
            std::reverse(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(size));
            socket->send(block.data(), size);
        }
    }

    std::unique_ptr<Socket> socket;
    std::string block;
    std::atomic<bool> stopRequested{false};
    std::thread thread;
};

using CommandReplier = socket::utils::Replier<Command, Command>;

/// Fills the reply with the next number and the payload in reverse.
void answerCommand(const Command& request, Command& reply) {
    reply = request;
    reply.set_id(request.id() + 1);
    std::reverse(reply.mutable_payload()->begin(), reply.mutable_payload()->end());
}

/// The words that follow the verb of a command.
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
        result.clear();
        (this->*found->second)(words);
        return result;
    }

private:
    Socket& socketOf(Words& words) { return *sockets.at(words.next()); }

    void limit(Words& words) { socket::Network::setMaxMessageSize(words.next<std::int64_t>()); }

    void secure(Words& words) {
        const auto keyFile = words.next();
        socket::Security::enable(keyFile, words.next());
    }

    void open(Words& words) {
        const auto name = words.next();
        const auto policy = static_cast<socket::ClosePolicy::ClosePolicy>(words.next<int>());
        sockets[name] = std::make_unique<Socket>(name, policy);
    }

    void create(Words& words) {
        Socket& socket = socketOf(words);
        socket.create(Protocol::FromString(words.next()));
    }

    void connect(Words& words) {
        Socket& socket = socketOf(words);
        const auto endpoint = socket::SocketEndpoint::FromString(words.next());
        socket.connect(endpoint, words.next<unsigned int>());
    }

    void setQueue(Words& words) {
        Socket& socket = socketOf(words);
        socket.setInternalFifoSize(words.next<int>());
    }

    void reset(Words& words) { socketOf(words).resetConnections(); }

    void close(Words& words) { socketOf(words).close(); }

    void send(Words& words) {
        Socket& socket = socketOf(words);
        std::string block = fromHexadecimal(words.next());
        socket.send(block.data(), block.size());
    }

    void receive(Words& words) {
        Socket& socket = socketOf(words);
        std::string buffer(words.next<std::size_t>(), '\0');
        const auto length = static_cast<std::size_t>(socket.receive(buffer.data(), buffer.size()));
        buffer.resize(std::min(length, buffer.size()));
        result = std::to_string(length) + " " + toHexadecimal(buffer);
    }

    void sendCommand(Words& words) {
        Socket& socket = socketOf(words);
        Command command;
        command.set_id(words.next<int>());
        command.mutable_header()->set_time(words.next<double>());
        command.set_payload(fromHexadecimal(words.next()));
        socket.sendProtoBuf(&command);
    }

    void receiveCommand(Words& words) {
        Socket& socket = socketOf(words);
        Command command;
        socket.receiveProtoBuf(&command, words.next<unsigned int>());
        result = std::to_string(command.id()) + " " + std::to_string(command.header().time()) + " " +
                 toHexadecimal(command.payload());
    }

    void poll(Words& words) {
        Socket& socket = socketOf(words);
        std::string error;
        result = std::to_string(socket.poll(words.next<unsigned int>(), error)) + " " + error;
    }

    /// Reads a number, and executes the command after it as many times.
    void repeat(Words& words) {
        const auto times = words.next<int>();
        const auto command = words.rest();
        for (int done = 0; done < times; ++done) {
            try {
                answer(command);
            } catch (const std::exception& failure) {
                throw std::runtime_error("after " + std::to_string(done) + ": " + failure.what());
            }
        }
    }

    void serve(Words& words) {
        const auto name = words.next();
        const auto size = words.next<std::size_t>();
        servers[name] = std::make_unique<BlockServer>(std::move(sockets.at(name)), size);
    }

    void listen(Words& words) {
        const auto name = words.next();
        auto listener = std::make_unique<CommandReplier>(name, answerCommand);
        std::string error;
        if (!listener->addListenEndpoint(words.next(), error) || !listener->start(error)) {
            throw std::runtime_error(error);
        }
        listeners[name] = std::move(listener);
    }

    std::string result;
    std::map<std::string, std::unique_ptr<Socket>> sockets;
    std::map<std::string, std::unique_ptr<BlockServer>> servers;
    std::map<std::string, std::unique_ptr<CommandReplier>> listeners;
    const std::map<std::string, void (Peer::*)(Words&)> verbs{
        {"limit", &Peer::limit},
        {"secure", &Peer::secure},
        {"open", &Peer::open},
        {"create", &Peer::create},
        {"connect", &Peer::connect},
        {"queue", &Peer::setQueue},
        {"reset", &Peer::reset},
        {"close", &Peer::close},
        {"send", &Peer::send},
        {"receive", &Peer::receive},
        {"send-command", &Peer::sendCommand},
        {"receive-command", &Peer::receiveCommand},
        {"poll", &Peer::poll},
        {"repeat", &Peer::repeat},
        {"serve", &Peer::serve},
        {"listen", &Peer::listen},
    };
};

} // namespace

} // namespace rk::tests

int main() {
    rk::tests::Peer peer;
    for (std::string line; std::getline(std::cin, line);) {
        try {
            std::cout << "ok " + peer.answer(line) << std::endl;
        } catch (const std::exception& failure) {
            std::cout << "error " << failure.what() << std::endl;
        }
    }
}
