#include "support/RecordingListener.h"
#include "support/RemoteSocket.h"
#include "support/interpose/Names.h"

#include <rk/socket/Network.h>

#include <zmq.h>

#include <arpa/inet.h>
#include <cerrno>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace rk::tests {

namespace {

/// Returns whether a connection to this numeric address and port is accepted.
bool accepts(const char* address, unsigned short port) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    EXPECT_EQ(0, getaddrinfo(address, std::to_string(port).c_str(), &hints, &found));
    const int descriptor = ::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool accepted = ::connect(descriptor, found->ai_addr, found->ai_addrlen) == 0;
    ::close(descriptor);
    freeaddrinfo(found);
    return accepted;
}

class ListenAddresses : public testing::Test {
protected:
    ~ListenAddresses() override {
        Network::listenOn("*");
        Network::setIpv6(false);
    }

    void listen(const std::string& host) {
        Network::listenOn(host);
        server.createAndConnect(Protocol::Rep, endpoint, patienceMs);
    }

    std::string refusalOf(const std::string& host) {
        const std::string refusal = textThrownBy([&] { listen(host); });
        std::string error;
        EXPECT_EQ("Socket: Cannot poll a NULL socket", textThrownBy([&] { server.poll(0, error); }));
        return refusal;
    }

    static std::string refused(const std::string& host, const std::string& reason) {
        return "Socket: Cannot listen on " + host + ": " + reason + " on [Socket server]";
    }

    std::vector<std::string> addresses() const { return standIn.journal().linesWith("zmq_bind"); }
    std::string at(const std::string& address) const { return "zmq_bind tcp://" + address + ":" + port; }

    const ContextOfTheProcess context;
    mutable StandIn standIn;
    SocketEndpoint endpoint = freshEndpoint(Transport::Tcp);
    const std::string port = std::to_string(endpoint.port);
    Socket server{"server", ClosePolicy::DropPending};
};

/// Skips its tests on a machine without IPv6.
class ListenAddressesIpv6 : public ListenAddresses {
protected:
    void SetUp() override {
        Network::setIpv6(true);
        sockaddr_in6 loopback{};
        loopback.sin6_family = AF_INET6;
        loopback.sin6_addr = in6addr_loopback;
        const int descriptor = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int result = ::bind(descriptor, reinterpret_cast<const sockaddr*>(&loopback), sizeof loopback);
        ::close(descriptor);
        if (result != 0) {
            GTEST_SKIP() << "this machine has no IPv6";
        }
    }
};

/// Changes the list of interfaces that the system returns to the library.
template <class Change>
void changeIpv6Addresses(const Change& change) {
    for (ifaddrs* entry = latestInterfaces(); entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET6) {
            change(*entry->ifa_addr);
        }
    }
}

/// Stops a listener, bound to the host of `Network`, that is blocked by a frame without ZeroMQ's delimiter.
void stopBlockedListener(const Journal& journal, const SocketEndpoint& endpoint, const std::string& address) {
    RecordingListener listener(Protocol::Rep);
    listener.serve(endpoint);
    RemoteSocket dealer(ZMQ_DEALER);
    dealer.set(ZMQ_IPV6, 1);
    dealer.connect(SocketEndpoint::FromString(address)).send("x");
    ASSERT_TRUE(journal.waitFor("zmq_recv"));

    std::string error;
    EXPECT_TRUE(listener.stop(error));
    EXPECT_EQ("zmq_connect " + address, journal.linesWith("zmq_connect").back());
}

} // namespace

TEST_F(ListenAddresses, AreAllByDefault) {
    listen("*");
    EXPECT_THAT(addresses(), ElementsAre(at("*")));
}

TEST_F(ListenAddresses, MayBeASingleOne) {
    listen("127.0.0.1");

    EXPECT_THAT(addresses(), ElementsAre(at("127.0.0.1")));
    EXPECT_EQ(1U, standIn.journal().count("debug: Connecting [Socket server], listening on tcp://127.0.0.1:" + port));
    EXPECT_TRUE(accepts("127.0.0.1", endpoint.port));
    EXPECT_FALSE(accepts("127.0.0.2", endpoint.port));
}

TEST_F(ListenAddresses, AreThoseOfALocalName) {
    listen("localhost");
    EXPECT_THAT(addresses(), ElementsAre(at("127.0.0.1")));
}

TEST_F(ListenAddresses, AreThoseOfAnInterface) {
    listen("lo");
    EXPECT_THAT(addresses(), ElementsAre(at("127.0.0.1")));
}

TEST_F(ListenAddresses, AreThoseOfTheEndpoint) {
    endpoint.address = "127.0.0.2";
    listen("");
    EXPECT_THAT(addresses(), ElementsAre(at("127.0.0.2")));
}

TEST_F(ListenAddresses, AreBoundAgainByARebuild) {
    listen("lo");
    server.resetConnections();

    EXPECT_TRUE(accepts("127.0.0.1", endpoint.port));
    EXPECT_FALSE(accepts("127.0.0.2", endpoint.port));
}

TEST_F(ListenAddresses, DoNotAffectIpc) {
    endpoint = freshEndpoint(Transport::Ipc);
    listen("192.0.2.77");
    EXPECT_THAT(addresses(), ElementsAre("zmq_bind ipc://" + endpoint.address));
}

TEST_F(ListenAddresses, DoNotAffectConnecting) {
    Network::listenOn("192.0.2.77");
    server.createAndConnect(Protocol::Req, endpoint, 0);
    EXPECT_EQ(1U, standIn.journal().count("zmq_connect " + endpoint.toString(Protocol::Req)));
}

TEST_F(ListenAddresses, LookUpOneFamily) {
    listen("localhost");
    EXPECT_EQ(1U, standIn.journal().count("getaddrinfo localhost " + std::to_string(AF_INET)));
}

TEST_F(ListenAddresses, AreRefusedIfNotLocal) {
    EXPECT_EQ(refused("192.0.2.77", "the machine has no such address"), refusalOf("192.0.2.77"));
}

TEST_F(ListenAddresses, AreRefusedIfUnknown) {
    for (const char* const host : {"eth77", "[lo"}) {
        standIn.answer("getaddrinfo", EAI_NONAME);
        EXPECT_EQ(refused(host, "no such address, interface or host name: Name or service not known"), refusalOf(host));
    }
}

TEST_F(ListenAddresses, AreRefusedIfInUse) {
    Socket other("other", ClosePolicy::DropPending);
    Network::listenOn("127.0.0.1");
    other.createAndConnect(Protocol::Rep, endpoint, 0);
    EXPECT_EQ("Socket: Failed connecting/binding socket: Address already in use on [Socket server]",
              refusalOf("127.0.0.1"));
}

TEST_F(ListenAddresses, AreRefusedWithoutIpv6) {
    for (const char* const host : {"::1", "[::1]", "fe80::1%lo", "fe80::1%a%b"}) {
        EXPECT_EQ(refused(host, "IPv6 is disabled"), refusalOf(host));
    }
}

TEST_F(ListenAddresses, AreRefusedIfInterfaceHasNone) {
    standIn.after("getifaddrs", [] {
        for (ifaddrs* entry = latestInterfaces(); entry != nullptr; entry = entry->ifa_next) {
            entry->ifa_addr = nullptr;
        }
    });
    EXPECT_EQ(refused("lo", "the interface has no address"), refusalOf("lo"));
}

TEST_F(ListenAddresses, AreRefusedIfTheSystemFails) {
    standIn.fail("getifaddrs", EMFILE);
    EXPECT_EQ(refused("lo", "Too many open files"), refusalOf("lo"));
    standIn.fail("getaddrinfo", EMFILE);
    EXPECT_EQ(refused("localhost", "no such address, interface or host name: Too many open files"),
              refusalOf("localhost"));
}

TEST_F(ListenAddresses, IncludeThoseWithALabel) {
    char label[] = "lo:1:2";
    standIn.after("getifaddrs", [&] {
        for (ifaddrs* entry = latestInterfaces(); entry != nullptr; entry = entry->ifa_next) {
            entry->ifa_name = label;
        }
    });
    listen("lo");
    EXPECT_THAT(addresses(), testing::Contains(at("127.0.0.1")));
}

TEST_F(ListenAddresses, KeepZmqsErrorForAll) {
    standIn.fail("zmq_bind", EADDRNOTAVAIL);
    EXPECT_EQ("Socket: Failed connecting/binding socket: Cannot assign requested address on [Socket server]",
              refusalOf("*"));
}

TEST_F(ListenAddresses, WakeABlockedListener) {
    Network::listenOn("127.0.0.2");
    stopBlockedListener(standIn.journal(), endpoint, "tcp://127.0.0.2:" + port);
}

TEST_F(ListenAddressesIpv6, TakesBothFamilies) {
    listen("lo");

    EXPECT_THAT(addresses(), ElementsAre(at("127.0.0.1"), at("[::1]")));
    EXPECT_EQ(1U, standIn.journal().count("debug: Connecting [Socket server], listening on tcp://127.0.0.1:" + port +
                                          ", tcp://[::1]:" + port));
    EXPECT_TRUE(accepts("127.0.0.1", endpoint.port));
    EXPECT_TRUE(accepts("::1", endpoint.port));
}

TEST_F(ListenAddressesIpv6, TakesAllOfBothFamilies) {
    listen("*");
    EXPECT_TRUE(accepts("127.0.0.1", endpoint.port));
    EXPECT_TRUE(accepts("::1", endpoint.port));
}

TEST_F(ListenAddressesIpv6, TakesAnIpv4Address) {
    listen("127.0.0.1");
    EXPECT_TRUE(accepts("127.0.0.1", endpoint.port));
    EXPECT_FALSE(accepts("::1", endpoint.port));
}

TEST_F(ListenAddressesIpv6, TakesAnIpv6Address) {
    for (const char* const host : {"::1", "[::1]"}) {
        standIn.journal().clear();
        listen(host);
        EXPECT_THAT(addresses(), testing::Each(at("[::1]")));
        EXPECT_TRUE(accepts("::1", endpoint.port));
        EXPECT_FALSE(accepts("127.0.0.1", endpoint.port));
    }
}

TEST_F(ListenAddressesIpv6, SharesAChosenPort) {
    endpoint.port = 0;
    listen("lo");

    const std::vector<std::string> bound = addresses();
    ASSERT_EQ(2U, bound.size());
    EXPECT_EQ("zmq_bind tcp://127.0.0.1:0", bound[0]);
    const SocketEndpoint second = SocketEndpoint::FromString(bound[1].substr(std::string("zmq_bind ").size()));
    EXPECT_NE(0, second.port);
    EXPECT_TRUE(accepts("127.0.0.1", second.port));
    EXPECT_TRUE(accepts("::1", second.port));
}

TEST_F(ListenAddressesIpv6, ResolvesNames) {
    listen("localhost");
    EXPECT_EQ(1U, standIn.journal().count("getaddrinfo localhost " + std::to_string(AF_UNSPEC)));
    EXPECT_TRUE(accepts("127.0.0.1", endpoint.port));
}

TEST_F(ListenAddressesIpv6, ServesBothFamilies) {
    listen("lo");
    for (const char* const host : {"127.0.0.1", "[::1]", "localhost"}) {
        Socket client("client", ClosePolicy::DropPending);
        client.createAndConnect(Protocol::Req, SocketEndpoint(Transport::Tcp, host, endpoint.port), patienceMs);
        sendText(client, host);
        EXPECT_EQ(host, receiveText(server));
        sendText(server, "reply");
        EXPECT_EQ("reply", receiveText(client));
    }
}

TEST_F(ListenAddressesIpv6, SkipsLinkLocalAddresses) {
    standIn.after("getifaddrs", [] {
        changeIpv6Addresses([](sockaddr& address) {
            inet_pton(AF_INET6, "fe80::1", &reinterpret_cast<sockaddr_in6&>(address).sin6_addr);
        });
    });
    listen("lo");
    EXPECT_THAT(addresses(), ElementsAre(at("127.0.0.1")));
}

TEST_F(ListenAddressesIpv6, AreRefusedIfOnlyLinkLocal) {
    sockaddr_in6 linkLocal{};
    linkLocal.sin6_family = AF_INET6;
    inet_pton(AF_INET6, "fe80::1", &linkLocal.sin6_addr);
    standIn.after("getaddrinfo", [&] {
        for (addrinfo* entry = latestAddresses(); entry != nullptr; entry = entry->ai_next) {
            entry->ai_addr = reinterpret_cast<sockaddr*>(&linkLocal);
        }
    });
    EXPECT_EQ(refused("localhost", "the host name has no address"), refusalOf("localhost"));
}

TEST_F(ListenAddressesIpv6, TakesAnAddressOnce) {
    standIn.after("getifaddrs", [] {
        changeIpv6Addresses([](sockaddr& address) {
            auto& ipv4 = reinterpret_cast<sockaddr_in&>(address);
            ipv4.sin_family = AF_INET;
            ipv4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        });
    });
    listen("lo");
    EXPECT_THAT(addresses(), ElementsAre(at("127.0.0.1")));
}

TEST_F(ListenAddressesIpv6, WakesAListenerOnAll) {
    Network::listenOn("::");
    stopBlockedListener(standIn.journal(), endpoint, "tcp://[::]:" + port);
}

TEST_F(ListenAddressesIpv6, WakesABlockedListener) {
    Network::listenOn("::1");
    stopBlockedListener(standIn.journal(), endpoint, "tcp://[::1]:" + port);
}

} // namespace rk::tests
