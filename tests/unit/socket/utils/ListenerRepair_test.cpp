#include "support/Calls.h"
#include "support/NativeSocket.h"
#include "support/RecordingListener.h"
#include "support/RemoteSocket.h"

#include <zmq.h>

#include <chrono>
#include <stdexcept>
#include <tuple>

namespace rk::tests {

namespace {

using Clock = std::chrono::steady_clock;

const std::string connected = "debug: Connected [Socket service]";

/// A handler that does not reply, and a request for it.
struct Silence {
    const char* name;
    RecordingListener::Handler handler;
    std::string request;
};

void PrintTo(const Silence& silence, std::ostream* stream) {
    *stream << silence.name;
}

const Silence handlerReturns{"HandlerReturns", ignore, ""};
const Silence handlerThrows{"HandlerThrows",
                            [](Text&, const std::shared_ptr<Socket>&) { throw std::runtime_error("no luck"); }, ""};
const Silence requestDoesNotParse{"RequestDoesNotParse", echo, "\xff"};
const Silence requestIsTooLong{"RequestIsTooLong", echo, std::string(131073, 'x')};

class ListenerRepair : public ListenerTest,
                       public testing::WithParamInterface<std::tuple<Transport::Transport, Silence>> {
protected:
    ListenerRepair() : ListenerTest(std::get<Transport::Transport>(GetParam())) {}

    void SetUp() override { listener.serve(endpoint); }

    /// Returns after the listener has rebuilt its socket, because the old socket's requests are lost.
    void sendARequestThatIsNotAnswered(NativeSocket& client) {
        const std::size_t connectedBefore = standIn.journal().count(connected);
        listener.setHandler(std::get<Silence>(GetParam()).handler);
        client.send(std::get<Silence>(GetParam()).request);
        ASSERT_TRUE(standIn.journal().waitFor(connected, connectedBefore + 1));
        listener.setHandler(echo);
    }
};

std::string caseName(const testing::TestParamInfo<ListenerRepair::ParamType>& info) {
    return Transport::ToString(std::get<Transport::Transport>(info.param)) + std::get<Silence>(info.param).name;
}

const auto everySilence = testing::Values(handlerReturns, handlerThrows, requestDoesNotParse, requestIsTooLong);

INSTANTIATE_TEST_SUITE_P(On, ListenerRepair, testing::Combine(everyTransport(), everySilence), caseName);

/// An inproc peer does not reconnect.
class ListenerRepairRemote : public ListenerRepair {};

INSTANTIATE_TEST_SUITE_P(On, ListenerRepairRemote,
                         testing::Combine(testing::Values(Transport::Tcp, Transport::Ipc), everySilence), caseName);

} // namespace

/// A round would take a second if a repair waited for the end of a poll.
TEST_P(ListenerRepair, ServesNewClients) {
    const Clock::time_point start = Clock::now();
    for (int round = 0; round < 50; ++round) {
        NativeSocket client(Protocol::Req, endpoint);
        ASSERT_NO_FATAL_FAILURE(sendARequestThatIsNotAnswered(client)) << "round " << round;
        ASSERT_EQ("question", ask(endpoint, "question")) << "round " << round;
    }
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(40));
    EXPECT_EQ(50U, standIn.journal().count("warning: "));
    EXPECT_EQ(0U, standIn.journal().count("error: [Socket service]"));
}

TEST_P(ListenerRepairRemote, ServesTheOthers) {
    RemoteSocket other(ZMQ_REQ);
    RemoteSocket::Monitor connection(other, ZMQ_EVENT_HANDSHAKE_SUCCEEDED);
    other.connect(endpoint);
    ASSERT_TRUE(connection.waitForEvent());
    other.send("");
    EXPECT_EQ("", other.receive());
    NativeSocket client(Protocol::Req, endpoint);
    sendARequestThatIsNotAnswered(client);

    ASSERT_TRUE(connection.waitForEvent());
    other.send("");
    EXPECT_EQ("", other.receive());
}

namespace {

class ListenerRepairCalls : public ListenerTest {};

} // namespace

TEST_F(ListenerRepairCalls, MakesTheCallsInOrder) {
    // On ipc no bind is retried.
    const SocketEndpoint path = freshEndpoint(Transport::Ipc);
    const std::string address = path.toString(Protocol::Rep);
    listener.setHandler(ignore);
    listener.serve(path);
    NativeSocket client(Protocol::Req, path);
    ASSERT_TRUE(standIn.journal().waitFor("zmq_poll"));
    standIn.journal().clear();

    client.send("");
    ASSERT_TRUE(standIn.journal().waitFor("zmq_poll 1 items, events 1, 1000 ms"));
    ASSERT_TRUE(listener.stop(error));

    EXPECT_THAT(standIn.journal().lines(),
                ElementsAre("zmq_recv 131072 bytes, flags 0", "zmq_poll 1 items, events 3, 0 ms",
                            calls::repairWarning("service"), "zmq_close", "zmq_socket 4",
                            "debug: Connecting [Socket service], listening on " + address,
                            "zmq_setsockopt 17 = 0 (4 bytes)", "zmq_bind " + address, "chmod " + path.address + " 777",
                            "zmq_setsockopt 17 = 0 (4 bytes)", "debug: Connected [Socket service]",
                            "zmq_poll 1 items, events 1, 1000 ms", "zmq_close"));
}

TEST_F(ListenerRepairCalls, EndsTheThreadWhenItFails) {
    listener.setHandler([this](Text&, const std::shared_ptr<Socket>&) { standIn.fail("zmq_socket", EMFILE); });
    listener.serve(endpoint);
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");

    ASSERT_TRUE(standIn.journal().waitFor("error: [Socket Listener rep]"));
    EXPECT_THAT(standIn.journal().linesWith("error: "),
                ElementsAre("error: [Socket service]: Error resetting socket: Socket: Failed creating socket [Socket "
                            "service] of type 3: Too many open files on [Socket service]",
                            "error: [Socket Listener rep] Failed reading socket: Socket: Cannot poll a NULL socket. "
                            "Aborting listener thread."));
}

TEST_F(ListenerRepairCalls, IsSkippedForAClosedSocket) {
    listener.setHandler([](Text&, const std::shared_ptr<Socket>& socket) { socket->close(); });
    listener.serve(endpoint);
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");

    EXPECT_TRUE(
        standIn.journal().waitFor("error: [Socket Listener rep] Failed reading socket: Socket: Cannot poll a NULL "
                                  "socket. Aborting listener thread."));
    EXPECT_EQ(0U, standIn.journal().count("warning: "));
    // A poll with a null socket would poll standard input.
    EXPECT_EQ(0U, standIn.journal().count("zmq_poll 1 items, events 3"));
}

} // namespace rk::tests
