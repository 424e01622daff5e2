#include "support/Test.h"
#include "support/messages.pb.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <string_view>

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

/// Receives into a buffer of `size` bytes, and expects the bytes after it not to change.
void expectReceived(Socket& socket, std::string_view expected, std::size_t size) {
    std::vector<char> buffer(size + 64, '~');
    EXPECT_EQ(static_cast<int>(expected.size()), socket.receive(buffer.data(), size));
    const std::size_t kept = std::min(size, expected.size());
    EXPECT_TRUE(std::equal(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(kept), expected.begin()))
        << expected.size() << " bytes into " << size;
    EXPECT_EQ(std::string(64, '~'), std::string(buffer.end() - 64, buffer.end()));
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
    /// The largest size runs on one transport only, to save time.
    std::vector<std::size_t> sizes{everySize.begin(), everySize.end() - (GetParam() == Transport::Inproc ? 0 : 1)};
    const SocketEndpoint endpoint = freshEndpoint(GetParam());
    Peer server{"server", Protocol::Rep, endpoint};
    Peer client{"client", Protocol::Req, endpoint};
};

INSTANTIATE_TEST_SUITE_P(On, Transfers, everyTransport(), nameOfTransport);

} // namespace

TEST_P(Transfers, CarriesRequestsAndReplies) {
    for (const std::size_t size : sizes) {
        client.send(block(size));
        expectReceived(server, block(size), size);
        server.send(block(size));
        expectReceived(client, block(size), size);
    }
}

TEST_P(Transfers, TruncatesToTheBuffer) {
    for (const std::size_t size : {0U, 1U, 255U, 256U, 65536U, 100001U, 1048577U}) {
        for (const std::size_t bufferSize :
             {0U, 1U, 2U, 254U, 256U, 257U, 65535U, 65537U, 100000U, 1048576U, 2000000U}) {
            client.send(block(size));
            expectReceived(server, block(size), bufferSize);
            server.send(block(size));
            expectReceived(client, block(size), bufferSize);
        }
    }
}

TEST_P(Transfers, CarriesMessages) {
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

} // namespace rk::tests
