#include "support/Calls.h"
#include "support/RemoteSocket.h"
#include "support/SystemSockets.h"
#include "support/Test.h"

#include <algorithm>
#include <chrono>
#include <sys/stat.h>
#include <unistd.h>

namespace rk::tests {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds immediately{100};

/// Sets the umask on scope entry and restores it on scope exit.
class Umask {
public:
    explicit Umask(mode_t mask) : before(::umask(mask)) {}
    ~Umask() { ::umask(before); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    const mode_t before;
};

unsigned int modeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(0, ::stat(path.c_str(), &status));
    return status.st_mode & 07777;
}

class SocketBind : public testing::TestWithParam<Protocol::Protocol> {
protected:
    StandIn standIn;
    const SocketEndpoint port = freshEndpoint(Transport::Tcp);
    const SocketEndpoint name = freshEndpoint(Transport::Inproc);
    const SocketEndpoint path = freshEndpoint(Transport::Ipc);
    Socket socket{"control", ClosePolicy::DropPending};

    void expectRefusedAtOnce(const SocketEndpoint& endpoint) {
        // Otherwise a port 0 that an earlier test released could cause retries.
        const Peer anyPort("any port", Protocol::Rep, {Transport::Tcp, "*", 0});
        // Takes the shortest of several calls, because any call may take long on a busy machine.
        Clock::duration shortest = Clock::duration::max();
        for (int attempt = 0; attempt < 6; ++attempt) {
            shortest = std::min(shortest, timeOfRefusal(attempt % 2 == 0 ? Protocol::Rep : Protocol::Pub, endpoint));
        }
        EXPECT_LT(shortest, immediately);
    }

    /// Expects a request to the endpoint to reach `server`.
    static void expectServed(Socket& server, const SocketEndpoint& endpoint) {
        Peer client("client", Protocol::Req, endpoint);
        sendText(client, "question");
        EXPECT_EQ("question", receiveText(server));
    }

    void expectTakenOver() {
        socket.createAndConnect(Protocol::Rep, path, patienceMs);
        expectServed(socket, path);
        socket.close();
    }

private:
    Clock::duration timeOfRefusal(Protocol::Protocol pattern, const SocketEndpoint& endpoint) {
        standIn.journal().clear();
        const Clock::time_point start = Clock::now();
        const std::string text = textThrownBy([&] { socket.createAndConnect(pattern, endpoint, 0); });
        const Clock::duration time = Clock::now() - start;

        EXPECT_EQ("Socket: Failed connecting/binding socket: Address already in use on [Socket control]", text);
        EXPECT_EQ(1U, standIn.journal().count("zmq_bind"));
        expectClosed(standIn, socket);
        return time;
    }
};

INSTANTIATE_TEST_SUITE_P(Of, SocketBind, testing::ValuesIn(everyPattern), nameOfPattern);

} // namespace

TEST_F(SocketBind, FailsWhenThisProcessHasBound) {
    Peer holder("holder", Protocol::Rep, port);
    holder.connect(name, patienceMs);

    expectRefusedAtOnce(port);
    expectRefusedAtOnce(name);
    expectServed(holder, port);
}

TEST_F(SocketBind, IsRefusedWhenAListenerBinds) {
    const SystemListener holder(port);
    expectRefusedAtOnce(port);
}

TEST_F(SocketBind, TakesOverAPathFromAnyHolder) {
    {
        Peer holder("holder", Protocol::Rep, path, ClosePolicy::DropPending, 0);
        expectTakenOver();
    }
    {
        RemoteSocket holder(ZMQ_REP);
        holder.bind(path);
        expectTakenOver();
    }
    ::unlink(path.address.c_str());
    const SystemListener holder(path);
    expectTakenOver();
}

TEST_P(SocketBind, LetsEveryUserOpenTheSocketFile) {
    const Umask narrow(077);
    RemoteSocket holder(ZMQ_REP);
    holder.bind(path);
    ASSERT_EQ(0700U, modeOf(path.address));
    const unsigned int expected = calls::binds(GetParam()) ? 0777 : 0700;

    socket.createAndConnect(GetParam(), path, 0);
    EXPECT_EQ(expected, modeOf(path.address));
    socket.resetConnections();
    EXPECT_EQ(expected, modeOf(path.address));
}

} // namespace rk::tests
