#include "support/Test.h"

#include <ostream>
#include <type_traits>

namespace rk::tests {

namespace {

static_assert(std::is_convertible_v<SocketEndpoint*, rk::utils::IMessageFormatter*>);
static_assert(!std::has_virtual_destructor_v<SocketEndpoint>);
static_assert(std::is_default_constructible_v<SocketEndpoint>);
static_assert(std::is_constructible_v<SocketEndpoint, Transport::Transport, const std::string&, unsigned short>);
static_assert(std::is_copy_constructible_v<SocketEndpoint>);
static_assert(std::is_copy_assignable_v<SocketEndpoint>);
static_assert(std::is_nothrow_destructible_v<SocketEndpoint>);

struct Parsed {
    std::string text;
    Transport::Transport transport;
    std::string address;
    unsigned short port;
};

void PrintTo(const Parsed& parsed, std::ostream* out) {
    *out << parsed.text;
}

class SocketEndpointText : public testing::TestWithParam<Parsed> {};

INSTANTIATE_TEST_SUITE_P(OfTcp, SocketEndpointText,
                         testing::Values(Parsed{"tcp://node1:5555", Transport::Tcp, "node1", 5555},
                                         Parsed{"tcp://*:5555", Transport::Tcp, "*", 5555},
                                         Parsed{"tcp://:5555", Transport::Tcp, "", 5555},
                                         Parsed{"tcp://[::1]:80", Transport::Tcp, "[::1]", 80},
                                         Parsed{"tcp://a:b:c:1", Transport::Tcp, "a:b:c", 1},
                                         Parsed{"tcp://::", Transport::Tcp, ":", 0},
                                         Parsed{"tcp://tcp://h:1", Transport::Tcp, "tcp://h", 1},
                                         Parsed{"tcp:// h :1", Transport::Tcp, " h ", 1}));

INSTANTIATE_TEST_SUITE_P(
    OfAnyPort, SocketEndpointText,
    testing::Values(Parsed{"tcp://h:0", Transport::Tcp, "h", 0}, Parsed{"tcp://h:65535", Transport::Tcp, "h", 65535},
                    Parsed{"tcp://h:", Transport::Tcp, "h", 0}, Parsed{"tcp://:", Transport::Tcp, "", 0},
                    Parsed{"tcp://h:x", Transport::Tcp, "h", 0}, Parsed{"tcp://h:80x", Transport::Tcp, "h", 80},
                    Parsed{"tcp://h:80 90", Transport::Tcp, "h", 80}, Parsed{"tcp://h:0x10", Transport::Tcp, "h", 0},
                    Parsed{"tcp://h:010", Transport::Tcp, "h", 10}, Parsed{"tcp://h: 80", Transport::Tcp, "h", 80},
                    Parsed{"tcp://h:\t+80", Transport::Tcp, "h", 80}, Parsed{"tcp://h:-1", Transport::Tcp, "h", 65535},
                    Parsed{"tcp://h:65536", Transport::Tcp, "h", 0}, Parsed{"tcp://h:70000", Transport::Tcp, "h", 4464},
                    Parsed{"tcp://h:-70000", Transport::Tcp, "h", 61072},
                    Parsed{"tcp://h:99999999999999999999", Transport::Tcp, "h", 65535},
                    Parsed{"tcp://h:-99999999999999999999", Transport::Tcp, "h", 0}));

INSTANTIATE_TEST_SUITE_P(OfIpc, SocketEndpointText,
                         testing::Values(Parsed{"ipc://x", Transport::Ipc, "x", 0},
                                         Parsed{"ipc:///tmp/s", Transport::Ipc, "/tmp/s", 0},
                                         Parsed{"ipc://@name", Transport::Ipc, "@name", 0},
                                         Parsed{"ipc:// :1", Transport::Ipc, " :1", 0}));

INSTANTIATE_TEST_SUITE_P(OfInproc, SocketEndpointText,
                         testing::Values(Parsed{"inproc://x", Transport::Inproc, "x", 0},
                                         Parsed{"inproc://a:1", Transport::Inproc, "a:1", 0},
                                         Parsed{"inproc://inproc://", Transport::Inproc, "inproc://", 0}));

class SocketEndpointNoTransport : public testing::TestWithParam<std::string> {};

INSTANTIATE_TEST_SUITE_P(Of, SocketEndpointNoTransport,
                         testing::Values("", "x", "tcp", "tcp:", "tcp:/", "tcp://", "ipc://", "inproc://", "inproc:/",
                                         "udp://x:1", "TCP://x:1", "Tcp://x:1", "IPC://x", "INPROC://x", " tcp://h:1",
                                         "tcp:h:1", "tcp:/h:1", "pgm://x:1", "node1:5555", "*:5555", "/tmp/s"));

class SocketEndpointNoPort : public testing::TestWithParam<std::string> {};

INSTANTIATE_TEST_SUITE_P(Of, SocketEndpointNoPort,
                         testing::Values("tcp://node1", "tcp://*", "tcp://x", "tcp:// ", "tcp:///tmp/s", "tcp://5555"));

} // namespace

TEST(SocketEndpoint, IsInvalidByDefault) {
    const SocketEndpoint endpoint;

    EXPECT_EQ(Transport::Undef, endpoint.transport);
    EXPECT_EQ("", endpoint.address);
    EXPECT_EQ(0, endpoint.port);
}

TEST(SocketEndpoint, DoesNotCheckItsValues) {
    const SocketEndpoint endpoint(static_cast<Transport::Transport>(9), "any thing", 65535);

    EXPECT_EQ(9, endpoint.transport);
    EXPECT_EQ("any thing", endpoint.address);
    EXPECT_EQ(65535, endpoint.port);
}

TEST_P(SocketEndpointText, IsParsed) {
    const SocketEndpoint endpoint = SocketEndpoint::FromString(GetParam().text);

    EXPECT_EQ(GetParam().transport, endpoint.transport);
    EXPECT_EQ(GetParam().address, endpoint.address);
    EXPECT_EQ(GetParam().port, endpoint.port);
}

TEST(SocketEndpoint, KeepsEveryByteOfAnAddress) {
    const std::string path("a\0b", 3);

    EXPECT_EQ(path, SocketEndpoint::FromString("ipc://" + path).address);
    EXPECT_EQ(path, SocketEndpoint::FromString("inproc://" + path).address);
    EXPECT_EQ(path, SocketEndpoint::FromString("tcp://" + path + ":1").address);
}

TEST_P(SocketEndpointNoTransport, IsRefused) {
    EXPECT_EQ("Failed deserializing " + GetParam() + ": cannot extract transport",
              textThrownBy([] { SocketEndpoint::FromString(GetParam()); }));
}

TEST_P(SocketEndpointNoPort, IsRefused) {
    EXPECT_EQ("Failed deserializing " + GetParam() + ": cannot extract port",
              textThrownBy([] { SocketEndpoint::FromString(GetParam()); }));
}

TEST(SocketEndpoint, PrintsForAnyPattern) {
    const auto outOfRange = static_cast<Protocol::Protocol>(7);
    EXPECT_EQ("tcp://node1:5555", SocketEndpoint(Transport::Tcp, "node1", 5555).toString(outOfRange));
    EXPECT_EQ("ipc:///tmp/s", SocketEndpoint(Transport::Ipc, "/tmp/s", 5).toString(outOfRange));
    EXPECT_EQ("tcp://:5555", SocketEndpoint(Transport::Tcp, "", 5555).toString(Protocol::Req));
}

TEST(SocketEndpoint, PrintsTheNumberOfABadTransport) {
    EXPECT_EQ("Invalid 0", SocketEndpoint().toString(Protocol::Pub));
    EXPECT_EQ("Invalid 4", SocketEndpoint(static_cast<Transport::Transport>(4), "h", 1).toString(Protocol::Pub));
    EXPECT_EQ("Invalid -1", SocketEndpoint(static_cast<Transport::Transport>(-1), "h", 1).toString(Protocol::Req));
}

TEST(SocketEndpoint, ShowsItsTextInItsHeader) {
    EXPECT_EQ("SocketEndpoint ipc:///tmp/s", SocketEndpoint(Transport::Ipc, "/tmp/s", 0).messageHeader());
    EXPECT_EQ("SocketEndpoint Invalid 0", SocketEndpoint().messageHeader());
    EXPECT_EQ("SocketEndpoint tcp://node1:5555: text",
              SocketEndpoint(Transport::Tcp, "node1", 5555).formatMessage("text"));
}

TEST(SocketEndpoint, WritesEachPatternsText) {
    for (const auto pattern : {Protocol::Undef, Protocol::Pub, Protocol::Sub, Protocol::Rep, Protocol::Req}) {
        const bool binds = pattern == Protocol::Pub || pattern == Protocol::Rep;
        for (const int port : {0, 1, 5555, 65535}) {
            const std::string end = ":" + std::to_string(port);
            EXPECT_EQ((binds ? "tcp://*" : "tcp://node:1") + end,
                      SocketEndpoint(Transport::Tcp, "node:1", static_cast<unsigned short>(port)).toString(pattern));
        }
        EXPECT_EQ("ipc:///tmp/s", SocketEndpoint(Transport::Ipc, "/tmp/s", 5).toString(pattern));
        EXPECT_EQ("inproc://a:1", SocketEndpoint(Transport::Inproc, "a:1", 5).toString(pattern));
    }
}

TEST(SocketEndpoint, ComparesTheTcpPort) {
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

} // namespace rk::tests
