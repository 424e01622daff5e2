#include "support/Calls.h"
#include "support/SecuredProcess.h"
#include "support/Test.h"
#include "support/ThreadFaults.h"

#include <rk/socket/Network.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <future>
#include <iostream>
#include <limits>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace rk::tests {

namespace {

using calls::Lines;
using calls::set;
using Security::KeyPair;

constexpr int enforceDomain = 93; // ZMQ_ZAP_ENFORCE_DOMAIN, which zmq.h hides

std::string setting(int option, const std::string& value) {
    return "zmq_setsockopt " + std::to_string(option) + " = " + value + " (" + std::to_string(value.size()) + " bytes)";
}

std::string sizeLimit(std::int64_t bytes) {
    return "zmq_setsockopt " + std::to_string(ZMQ_MAXMSGSIZE) + " = " + std::to_string(bytes) + " (8 bytes)";
}

/// The options that sockets set for their endpoints.
class SecurityOptions : public testing::Test {
protected:
    /// Returns the options that `connect` sets.
    Lines optionsOf(Protocol::Protocol protocol, Transport::Transport transport) {
        Socket socket("part", ClosePolicy::DropPending);
        socket.create(protocol);
        standIn.journal().clear();
        socket.connect(freshEndpoint(transport), 0);
        Lines lines;
        for (const std::string& line : standIn.journal().linesWith("zmq_setsockopt")) {
            if (line.find(set(ZMQ_LINGER, 0)) != 0 && line.find("zmq_setsockopt 6 ") != 0) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    Lines serverOptions(std::int64_t limit) const {
        return {sizeLimit(limit),         setting(ZMQ_CURVE_SECRETKEY, process.own.secretKey),
                set(ZMQ_CURVE_SERVER, 1), setting(ZMQ_ZAP_DOMAIN, "rk-socket"),
                set(enforceDomain, 1),    set(ZMQ_HANDSHAKE_IVL, 5000)};
    }

    StandIn standIn;
    SecuredProcess process;
};

/// The same in a separate process, because a limit cannot become absent again.
class SecurityOptionsDeathTest : public SecurityOptions {
protected:
    void addToEachLimit() {
        constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
        for (const auto& [size, limit] : {std::pair<std::int64_t, std::int64_t>{5000, 5033},
                                          {992, 1025},
                                          {991, 1024},
                                          {1, 1024},
                                          {-1, -1},
                                          {largest, largest}}) {
            Network::setMaxMessageSize(size);
            EXPECT_EQ(sizeLimit(limit), optionsOf(Protocol::Rep, Transport::Tcp).front());
        }
        Network::setMaxMessageSize(5000);
        EXPECT_EQ(sizeLimit(5000), optionsOf(Protocol::Rep, Transport::Ipc).front());
    }
};

/// A call that fails in `connect`, and the expected message.
struct Failure {
    const char* name;
    Protocol::Protocol protocol;
    int option;
    std::string text;
    Transport::Transport transport = Transport::Tcp;
};

void PrintTo(const Failure& failure, std::ostream* stream) {
    *stream << failure.name;
}

class SecurityRefusal : public SecurityOptions, public testing::WithParamInterface<Failure> {};

INSTANTIATE_TEST_SUITE_P(
    Of, SecurityRefusal,
    testing::Values(Failure{"SecretKey", Protocol::Rep, ZMQ_CURVE_SECRETKEY, "ZMQ_CURVE_SECRETKEY"},
                    Failure{"Server", Protocol::Rep, ZMQ_CURVE_SERVER, "ZMQ_CURVE_SERVER"},
                    Failure{"Domain", Protocol::Pub, ZMQ_ZAP_DOMAIN, "ZMQ_ZAP_DOMAIN"},
                    Failure{"Enforce", Protocol::Pub, enforceDomain, "ZMQ_ZAP_ENFORCE_DOMAIN"},
                    Failure{"Handshake", Protocol::Pub, ZMQ_HANDSHAKE_IVL, "ZMQ_HANDSHAKE_IVL"},
                    Failure{"ServerKey", Protocol::Req, ZMQ_CURVE_SERVERKEY, "ZMQ_CURVE_SERVERKEY"},
                    Failure{"PublicKey", Protocol::Sub, ZMQ_CURVE_PUBLICKEY, "ZMQ_CURVE_PUBLICKEY"},
                    Failure{"ClientKey", Protocol::Sub, ZMQ_CURVE_SECRETKEY, "ZMQ_CURVE_SECRETKEY"},
                    Failure{"Plain", Protocol::Sub, ZMQ_CURVE_SERVER, "ZMQ_CURVE_SERVER", Transport::Ipc},
                    Failure{"PlainDomain", Protocol::Rep, ZMQ_ZAP_DOMAIN, "ZMQ_ZAP_DOMAIN", Transport::Ipc},
                    Failure{"PlainEnforce", Protocol::Rep, enforceDomain, "ZMQ_ZAP_ENFORCE_DOMAIN", Transport::Ipc}),
    [](const auto& tested) { return tested.param.name; });

class SecurityLoss : public SecurityRefusal {};

INSTANTIATE_TEST_SUITE_P(Of, SecurityLoss,
                         testing::Values(Failure{"Server", Protocol::Rep, ZMQ_CURVE_SERVER, "ZMQ_CURVE_SERVER"},
                                         Failure{"Enforce", Protocol::Pub, enforceDomain, "ZMQ_ZAP_ENFORCE_DOMAIN"},
                                         Failure{"Domain", Protocol::Rep, ZMQ_ZAP_DOMAIN, "ZMQ_ZAP_DOMAIN"},
                                         Failure{"Mechanism", Protocol::Req, ZMQ_MECHANISM, "ZMQ_MECHANISM"}),
                         [](const auto& tested) { return tested.param.name; });

} // namespace

TEST(Security, GeneratesPairs) {
    const KeyPair keys = Security::generateKeyPair();
    char expected[41];
    ASSERT_EQ(0, zmq_curve_public(expected, keys.secretKey.c_str()));
    EXPECT_EQ(expected, keys.publicKey);
    EXPECT_EQ(40U, keys.secretKey.size());
}

TEST(Security, GeneratesAnotherPairEachTime) {
    EXPECT_NE(Security::generateKeyPair().secretKey, Security::generateKeyPair().secretKey);
}

TEST(Security, GeneratesNothingWithoutCurve) {
    StandIn standIn;
    standIn.fail("zmq_curve_keypair", ENOTSUP);
    EXPECT_EQ("Security: Cannot generate keys: Operation not supported",
              textThrownBy([] { Security::generateKeyPair(); }));
}

TEST(Security, WipesItsSecretKey) {
    // Zeros of calloc, because the compiler removes others in front of the constructor.
    const std::unique_ptr<void, decltype(&std::free)> storage(std::calloc(1, sizeof(KeyPair)), &std::free);
    auto* const keys = new (storage.get()) KeyPair();
    keys->secretKey = "short"; // lies in the object itself
    keys->~KeyPair();
    EXPECT_EQ(nullptr, memmem(storage.get(), sizeof(KeyPair), "short", 5));
}

TEST(SecurityDeathTest, IsRefusedAfterPlainTcp) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto enable = [] {
        Socket socket("plain", ClosePolicy::DropPending);
        socket.createAndConnect(Protocol::Req, freshEndpoint(Transport::Tcp), 0);
        std::cerr << textThrownBy<std::logic_error>([] { SecuredProcess(); }) << "\n";
        return socket.isOpen();
    };
    EXPECT_EXIT(std::exit(enable() ? 0 : 1), testing::ExitedWithCode(0),
                "Security: Cannot be enabled after a TCP endpoint was connected in plain\n");
}

TEST(SecurityDeathTest, IsEnabledAfterIpcAndInproc) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto enable = [] {
        Socket socket("plain", ClosePolicy::DropPending);
        socket.createAndConnect(Protocol::Rep, freshEndpoint(Transport::Ipc), 0);
        socket.connect(freshEndpoint(Transport::Inproc), 0);
        SecuredProcess();
    };
    EXPECT_EXIT((enable(), std::exit(0)), testing::ExitedWithCode(0), "");
}

TEST_F(SecurityOptions, EncryptServers) {
    const std::int64_t limit = 16 * 1024 * 1024 + 33;
    EXPECT_THAT(optionsOf(Protocol::Rep, Transport::Tcp), ElementsAreArray(serverOptions(limit)));
    EXPECT_THAT(optionsOf(Protocol::Pub, Transport::Tcp), ElementsAreArray(serverOptions(limit)));
}

TEST_F(SecurityOptions, EncryptClients) {
    for (const Protocol::Protocol protocol : {Protocol::Req, Protocol::Sub}) {
        EXPECT_THAT(optionsOf(protocol, Transport::Tcp),
                    ElementsAre(setting(ZMQ_CURVE_SERVERKEY, process.own.publicKey),
                                setting(ZMQ_CURVE_PUBLICKEY, process.own.publicKey),
                                setting(ZMQ_CURVE_SECRETKEY, process.own.secretKey)));
    }
}

TEST_F(SecurityOptions, LeaveOthersPlain) {
    for (const Transport::Transport transport : {Transport::Ipc, Transport::Inproc}) {
        EXPECT_THAT(optionsOf(Protocol::Rep, transport),
                    ElementsAre(sizeLimit(-1), set(ZMQ_CURVE_SERVER, 0), setting(ZMQ_ZAP_DOMAIN, "rk-socket-plain"),
                                set(enforceDomain, 0)));
        EXPECT_THAT(optionsOf(Protocol::Sub, transport), ElementsAre(set(ZMQ_CURVE_SERVER, 0)));
    }
}

TEST_F(SecurityOptionsDeathTest, AddLimits) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT((addToEachLimit(), std::exit(HasFailure() ? 1 : 0)), testing::ExitedWithCode(0), "");
}

TEST_P(SecurityRefusal, ClosesTheSocket) {
    standIn.fail("zmq_setsockopt " + std::to_string(GetParam().option), EINVAL);
    Socket socket("part", ClosePolicy::DropPending);
    EXPECT_EQ("Socket: Error setting " + GetParam().text + " Invalid argument on [Socket part]", textThrownBy([&] {
                  socket.createAndConnect(GetParam().protocol, freshEndpoint(GetParam().transport), 0);
              }));
    EXPECT_FALSE(socket.isOpen());
}

TEST_P(SecurityLoss, ClosesTheSocket) {
    const std::string function = "zmq_getsockopt " + std::to_string(GetParam().option);
    for (const bool fails : {false, true}) {
        Socket socket("part", ClosePolicy::DropPending);
        socket.create(GetParam().protocol);
        if (fails) {
            standIn.fail(function, EINVAL);
        } else {
            standIn.answer(function, 0); // without a value
        }
        EXPECT_EQ("Socket: ZeroMQ has not kept " + GetParam().text + " on [Socket part]",
                  textThrownBy([&] { socket.connect(freshEndpoint(Transport::Tcp), 0); }));
        EXPECT_FALSE(socket.isOpen());
    }
}

TEST_F(SecurityOptions, AreThoseOfTheLatestFiles) {
    std::future<void> latest;
    standIn.after("zmq_curve_keypair", [&] { // when the first call has read the files
        standIn.after("zmq_curve_keypair", nullptr);
        latest = std::async(std::launch::async, [&] { process.trust(""); });
        // Without its lock the second call would finish here. With the lock there is no event to wait for.
        latest.wait_for(std::chrono::milliseconds(200));
    });
    process.trust(process.itself());
    latest.get();
    const SocketEndpoint server = freshEndpoint(Transport::Tcp);
    Socket client("client", ClosePolicy::DropPending);
    EXPECT_EQ("Socket: No trusted key for " + server.toString(Protocol::Req) + " on [Socket client]",
              textThrownBy([&] { client.createAndConnect(Protocol::Req, server, 0); }));
}

TEST_F(SecurityOptions, StayWhenEnableFails) {
    const std::string path = process.files.write("other", KeyPair{"no key", ""});
    EXPECT_EQ("Security: " + path + ":1: not a key",
              textThrownBy([&] { Security::enable(path, process.files.pathOf("trusted")); }));
    EXPECT_EQ("Security: " + path + ":1: not a key",
              textThrownBy([&] { Security::enable(process.files.pathOf("keys"), path); }));
    EXPECT_EQ(setting(ZMQ_CURVE_PUBLICKEY, process.own.publicKey), optionsOf(Protocol::Req, Transport::Tcp)[1]);
}

TEST_F(SecurityOptions, StayWhenALockFails) {
    for (const int nth : {1, 2}) {
        const MutexFault fault(EINVAL, nth);
        EXPECT_EQ("Invalid argument",
                  textThrownBy<std::system_error>([&] { process.enable(Security::generateKeyPair(), ""); }));
    }
    EXPECT_EQ(setting(ZMQ_CURVE_PUBLICKEY, process.own.publicKey), optionsOf(Protocol::Req, Transport::Tcp)[1]);
}

} // namespace rk::tests
