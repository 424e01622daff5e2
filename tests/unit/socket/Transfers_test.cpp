#include "support/NativeSocket.h"
#include "support/Test.h"
#include "support/messages.pb.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <string_view>
#include <thread>

namespace rk::tests {

namespace {

constexpr std::size_t largest = 67108864;

const std::vector<std::size_t> everySize{0,      1,      2,      33,      34,       254,    255,   256,
                                         4095,   4096,   4097,   65535,   65536,    65537,  99999, 100000,
                                         100001, 131072, 131073, 1048577, 16777217, largest};

/// Returns pseudorandom bytes, different for each size.
std::string_view block(std::size_t size) {
    static const std::string bytes = [] {
        std::mt19937_64 random;
        std::string made(largest + 4096, '\0');
        for (std::size_t at = 0; at < made.size(); at += 8) {
            const std::uint64_t number = random();
            std::memcpy(&made[at], &number, 8);
        }
        return made;
    }();
    return std::string_view(bytes).substr(size % 4096, size);
}

void send(Socket& socket, std::string_view bytes) {
    socket.send(const_cast<char*>(bytes.data()), bytes.size());
}

/// Receives into a buffer of `size` bytes, and expects the bytes after it not to change.
void expectReceived(Socket& socket, std::string_view expected, std::size_t size) {
    std::vector<char> buffer(size + 64, '~');
    EXPECT_EQ(static_cast<int>(expected.size()), socket.receive(buffer.data(), size));
    const std::size_t kept = std::min(size, expected.size());
    EXPECT_TRUE(std::equal(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(kept), expected.begin()))
        << expected.size() << " bytes into " << size;
    EXPECT_EQ(std::string(64, '~'), std::string(buffer.end() - 64, buffer.end()));
}

void expectReceived(Socket& socket, std::string_view expected) {
    expectReceived(socket, expected, expected.size());
}

Command commandOf(std::size_t size) {
    Command command;
    command.set_id(1);
    command.mutable_header()->set_time(2);
    command.set_payload(std::string(block(size)));
    return command;
}

class Transfers : public testing::TestWithParam<Transport::Transport> {
protected:
    void open(Protocol::Protocol serverPattern, Protocol::Protocol clientPattern) {
        server.createAndConnect(serverPattern, endpoint, patienceMs);
        client.createAndConnect(clientPattern, endpoint, patienceMs);
    }

    /// Rebuilds the server, which owes a reply, and receives a new client's request of `size` bytes.
    void expectReceivedAfterJam(std::size_t size, std::size_t bufferSize) {
        NativeSocket asking(Protocol::Req);
        standIn.journal().clear();
        std::thread thread([&] {
            standIn.journal().waitFor("debug: Connected [Socket server]");
            asking.connect(endpoint);
            asking.send(std::string(block(size)));
        });
        expectReceived(server, block(size), bufferSize);
        thread.join();
        EXPECT_EQ(1U, standIn.journal().count("warning: "));
    }

    /// The largest size runs on one transport only, to save time.
    std::vector<std::size_t> sizes{everySize.begin(), everySize.end() - (GetParam() == Transport::Inproc ? 0 : 1)};
    StandIn standIn;
    const SocketEndpoint endpoint = freshEndpoint(GetParam());
    Socket server{"server", ClosePolicy::DropPending};
    Socket client{"client", ClosePolicy::DropPending};
};

INSTANTIATE_TEST_SUITE_P(On, Transfers, everyTransport(), nameOfTransport);

} // namespace

TEST_P(Transfers, CarriesRequestsAndReplies) {
    open(Protocol::Rep, Protocol::Req);
    for (const std::size_t size : sizes) {
        send(client, block(size));
        expectReceived(server, block(size));
        send(server, block(size));
        expectReceived(client, block(size));
    }
}

TEST_P(Transfers, TruncatesToTheBuffer) {
    open(Protocol::Rep, Protocol::Req);
    for (const std::size_t size : {0U, 1U, 255U, 256U, 65536U, 100001U, 1048577U}) {
        for (const std::size_t bufferSize :
             {0U, 1U, 2U, 254U, 256U, 257U, 65535U, 65537U, 100000U, 1048576U, 2000000U}) {
            send(client, block(size));
            expectReceived(server, block(size), bufferSize);
            send(server, block(size));
            expectReceived(client, block(size), bufferSize);
        }
    }
}

TEST_P(Transfers, CarriesMessages) {
    open(Protocol::Rep, Protocol::Req);
    for (const std::size_t size : sizes) {
        Command command = commandOf(size);
        Command received;
        client.sendProtoBuf(&command);
        server.receiveProtoBuf(&received, static_cast<unsigned int>(command.ByteSizeLong()));
        EXPECT_TRUE(block(size) == received.payload()) << size;
        server.sendProtoBuf(&received);
        client.receiveProtoBuf(&command, largest + 100);
        EXPECT_TRUE(block(size) == command.payload()) << size;
    }
}

TEST_P(Transfers, ReceivesARequestAfterAJam) {
    server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    client.createAndConnect(Protocol::Req, endpoint, patienceMs);
    send(client, "lost");
    expectReceived(server, "lost");
    for (const std::size_t size : sizes) {
        expectReceivedAfterJam(size, size);
        expectReceivedAfterJam(size, size / 2);
    }
}

TEST_P(Transfers, NeverShrinksTheBuffer) {
    open(Protocol::Rep, Protocol::Req);
    std::mt19937 random(1);
    unsigned int buffer = 0;
    for (int exchange = 0; exchange < 300; ++exchange) {
        Command command = commandOf(random() % 3000);
        const auto needed = static_cast<unsigned int>(command.ByteSizeLong());
        const auto asked = static_cast<unsigned int>(1 + random() % static_cast<unsigned int>(10 * exchange + 1));
        buffer = std::max(buffer, asked);
        client.sendProtoBuf(&command);
        command.Clear();
        standIn.journal().clear();
        if (needed <= buffer) {
            server.receiveProtoBuf(&command, asked);
        } else {
            EXPECT_THROW(server.receiveProtoBuf(&command, asked), std::runtime_error);
        }
        EXPECT_EQ(1U, standIn.journal().count("zmq_recv " + std::to_string(buffer) + " bytes, flags 0"));
        send(server, "");
        expectReceived(client, "");
    }
}

} // namespace rk::tests
