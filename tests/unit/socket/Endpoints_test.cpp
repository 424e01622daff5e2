#include "support/StandIn.h"

#include <rk/socket/Socket.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

// Texts and comparisons of endpoints, for any address.

namespace rk::tests {

namespace {

using socket::SocketEndpoint;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

constexpr auto everyPattern = {Protocol::Undef, Protocol::Pub, Protocol::Sub, Protocol::Rep, Protocol::Req};

class Endpoints : public testing::Test {
protected:
    /// Any bytes, often few of them, often colons and slashes.
    std::string randomAddress() {
        static const std::string frequent = ":/*.-@[]% 0919az";
        std::string address(1 + random() % (random() % 8 == 0 ? 5000 : 12), '\0');
        for (char& character : address) {
            character =
                random() % 4 == 0 ? static_cast<char>(1 + random() % 255) : frequent[random() % frequent.size()];
        }
        return address;
    }

    SocketEndpoint randomEndpoint(const std::string& address) {
        const auto transport = static_cast<Transport::Transport>(1 + random() % 3);
        return {transport, address, static_cast<unsigned short>(transport == Transport::Tcp ? random() : 0)};
    }

    std::mt19937 random;
};

} // namespace

TEST_F(Endpoints, ReadsWhatItWrites) {
    for (int round = 0; round < 20000; ++round) {
        const SocketEndpoint endpoint = randomEndpoint(randomAddress());
        for (const auto pattern : {Protocol::Undef, Protocol::Sub, Protocol::Req}) {
            const SocketEndpoint read = SocketEndpoint::FromString(endpoint.toString(pattern));
            ASSERT_EQ(endpoint.transport, read.transport);
            ASSERT_TRUE(endpoint.address == read.address);
            ASSERT_EQ(endpoint.port, read.port);
        }
    }
}

TEST_F(Endpoints, WritesEachPatternsText) {
    for (int port = 0; port < 65536; ++port) {
        const std::string address = randomAddress();
        const std::string end = ":" + std::to_string(port);
        const SocketEndpoint endpoint(Transport::Tcp, address, static_cast<unsigned short>(port));
        for (const auto pattern : everyPattern) {
            const bool binds = pattern == Protocol::Pub || pattern == Protocol::Rep;
            ASSERT_TRUE("tcp://" + (binds ? "*" : address) + end == endpoint.toString(pattern));
            ASSERT_TRUE("ipc://" + address == SocketEndpoint(Transport::Ipc, address, 0).toString(pattern));
            ASSERT_TRUE("inproc://" + address == SocketEndpoint(Transport::Inproc, address, 0).toString(pattern));
        }
        ASSERT_TRUE("SocketEndpoint tcp://" + address + end + ": text" == endpoint.formatMessage("text"));
    }
}

TEST_F(Endpoints, RefusesEveryTextWithoutATransport) {
    for (int round = 0; round < 20000; ++round) {
        const std::string text = randomAddress();
        try {
            SocketEndpoint::FromString(text);
            FAIL() << testing::PrintToString(text);
        } catch (const std::runtime_error& failure) {
            ASSERT_TRUE("Failed deserializing " + text + ": cannot extract transport" == failure.what());
        }
    }
}

TEST_F(Endpoints, IsEqualInTransportAddressAndTcpPort) {
    std::vector<SocketEndpoint> endpoints;
    for (const std::string& address : {std::string(), std::string("a"), std::string("aa"), std::string("a:1"),
                                       std::string("1 a"), std::string(300, 'a'), std::string(300, 'a') + "b"}) {
        for (int transport = 0; transport < 5; ++transport) {
            for (const unsigned int port : {0U, 1U, 256U, 65535U}) {
                endpoints.emplace_back(static_cast<Transport::Transport>(transport), address,
                                       static_cast<unsigned short>(port));
            }
        }
    }
    for (const SocketEndpoint& first : endpoints) {
        for (const SocketEndpoint& second : endpoints) {
            const bool equal = first.transport == second.transport && first.address == second.address &&
                               (first.transport != Transport::Tcp || first.port == second.port);
            ASSERT_EQ(equal, first == second);
            ASSERT_EQ(!equal, first != second);
        }
    }
}

TEST_F(Endpoints, IsConnectedOnceForEachThatDiffers) {
    StandIn standIn;
    socket::Socket socket("x", socket::ClosePolicy::DropPending);
    socket.create(Protocol::Req);
    std::vector<SocketEndpoint> distinct;
    for (int round = 0; round < 600; ++round) {
        const bool tcp = random() % 2 == 0;
        const std::string address =
            tcp ? "127.0.0." + std::to_string(1 + random() % 12) : "/nonexistent/" + std::to_string(random() % 120);
        const SocketEndpoint endpoint(tcp ? Transport::Tcp : Transport::Ipc, address,
                                      static_cast<unsigned short>(1 + random() % 12));
        const bool known = std::find(distinct.begin(), distinct.end(), endpoint) != distinct.end();
        standIn.journal().clear();
        socket.connect(endpoint, 0);
        ASSERT_EQ(known ? 0U : 1U, standIn.journal().count("zmq_connect " + endpoint.toString(Protocol::Req)));
        if (!known) {
            distinct.push_back(endpoint);
        }
    }
    EXPECT_LT(150U, distinct.size());
}

} // namespace rk::tests
