#include "support/Calls.h"
#include "support/Closed.h"
#include "support/SystemSockets.h"
#include "support/Test.h"
#include "support/ZmqHandle.h"

#include <zmq.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace rk::tests {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds immediately{100};

/// Another process that occupies a port during the lifetime of this object.
class OtherProcess {
public:
    explicit OtherProcess(unsigned short port) {
        const SystemListener listener({Transport::Tcp, "127.0.0.1", port});
        if (::pipe(ends) != 0) {
            throw std::runtime_error("cannot make a pipe");
        }
        child = ::fork();
        if (child == 0) {
            // Keeps its copy of the listener until the pipe is closed by the destructor.
            ::close(ends[1]);
            char byte = 0;
            const ssize_t size = ::read(ends[0], &byte, 1);
            ::_exit(size == 0 ? 0 : 1);
        }
        ::close(ends[0]);
    }
    ~OtherProcess() {
        ::close(ends[1]);
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(0, status);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

private:
    int ends[2] = {-1, -1};
    pid_t child = -1;
};

ZmqHandle bindPlain(ZmqContext& context, const std::string& address) {
    ZmqHandle socket = context.socket(ZMQ_REP);
    if (zmq_bind(socket.get(), address.c_str()) != 0) {
        throw std::runtime_error(zmq_strerror(zmq_errno()));
    }
    return socket;
}

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

TEST_F(SocketBind, FailsWhenAZmqSocketHasBound) {
    ZmqContext context;
    const ZmqHandle holder = bindPlain(context, port.toString(Protocol::Rep));
    expectRefusedAtOnce(port);
}

TEST_F(SocketBind, IsRefusedWhenAListenerBinds) {
    const SystemListener holder(port);
    expectRefusedAtOnce(port);
}

TEST_F(SocketBind, FailsWhenAnotherProcessHasBound) {
    const OtherProcess holder(port.port);
    expectRefusedAtOnce(port);
}

TEST_F(SocketBind, TakesOverAPathFromAnyHolder) {
    {
        Peer holder("holder", Protocol::Rep, path, ClosePolicy::DropPending, 0);
        expectTakenOver();
    }
    {
        ZmqContext context;
        const ZmqHandle holder = bindPlain(context, path.toString(Protocol::Rep));
        expectTakenOver();
    }
    ::unlink(path.address.c_str());
    const SystemListener holder(path);
    expectTakenOver();
}

TEST_P(SocketBind, LetsEveryUserOpenTheSocketFile) {
    const Umask narrow(077);
    ZmqContext context;
    const ZmqHandle holder = bindPlain(context, path.toString(Protocol::Rep));
    ASSERT_EQ(0700U, modeOf(path.address));
    const unsigned int expected = calls::binds(GetParam()) ? 0777 : 0700;

    socket.createAndConnect(GetParam(), path, 0);
    EXPECT_EQ(expected, modeOf(path.address));
    socket.resetConnections();
    EXPECT_EQ(expected, modeOf(path.address));
}

} // namespace rk::tests
