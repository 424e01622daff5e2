#include "support/NativeSocket.h"
#include "support/RecordingListener.h"
#include "support/RemoteSocket.h"
#include "support/ThreadFaults.h"

#include <zmq.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <list>
#include <thread>
#include <tuple>
#include <unistd.h>

namespace rk::tests {

namespace {

using socket::utils::SocketListener;

const std::string receiving = "zmq_recv";
const std::string wakeUp = "zmq_send 30 bytes, flags 1";

/// Messages without the empty delimiter frame that a reply socket requires.
struct Stray {
    const char* name;
    std::vector<Frames> messages;
};

void PrintTo(const Stray& stray, std::ostream* stream) {
    *stream << stray.name;
}

const Stray emptyFrame{"EmptyFrame", {{""}}};
const Stray oneFrame{"OneFrame", {{"x"}}};
const Stray twoFrames{"TwoFrames", {{"one", "two"}}};
const Stray manyFrames{"ManyFrames", {Frames(100, "x")}};
const Stray largeFrame{"LargeFrame", {{std::string(300000, 'x')}}};
const Stray emptyFrameBehind{"EmptyFrameBehind", {{"x", ""}}};
const Stray severalMessages{"SeveralMessages", {{""}, {"x"}, {"one", "two"}, {""}}};

/// A reply listener, and peers that send it stray frames.
class ListenerStray : public ListenerTest {
protected:
    ListenerStray() : ListenerTest(Transport::Tcp) {}

    /// Returns once the stray frames have made the listener block in its receive.
    void send(const Stray& stray, const SocketEndpoint& target) {
        const std::size_t before = standIn.journal().count(receiving);
        RemoteSocket& peer = peers.emplace_back(ZMQ_DEALER); // which adds no delimiter
        peer.connect(target);
        for (const Frames& message : stray.messages) {
            peer.sendFrames(message);
        }
        ASSERT_TRUE(standIn.journal().waitFor(receiving, before + 1));
    }
    void send(const Stray& stray) { send(stray, endpoint); }

    /// Serves on inproc, and blocks the listener by a probe, which is an empty frame.
    NativeSocket probeOnInproc() {
        listener.serve(endpoint);
        NativeSocket prober(Protocol::Req);
        prober.set(ZMQ_PROBE_ROUTER, 1);
        prober.connect(endpoint);
        EXPECT_TRUE(standIn.journal().waitFor(receiving));
        return prober;
    }

    /// Stops without shortening the current poll. Runs `action` when it begins to wait for the listener's end.
    void expectStop(SocketListener& stopped, std::function<void()> action = nullptr) {
        std::string reason;
        auto stop = std::async(std::launch::async, [&] {
            const BeforeJoin waiting(std::move(action));
            return stopped.SocketListener::stop(reason);
        });
        const bool inTime = stop.wait_for(patience) == std::future_status::ready;
        EXPECT_TRUE(inTime);
        if (!inTime) {
            ask(endpoint, "to end the receive");
        }
        EXPECT_TRUE(stop.get()) << reason;
    }

    /// Stops a blocked listener that cannot be woken. Returns after the attempt.
    std::future<bool> stopUnwoken() {
        listener.serve(endpoint);
        send(oneFrame);
        standIn.fail("zmq_connect", EINVAL, 1, StandIn::always);
        auto stop = std::async(std::launch::async, [&] { return listener.SocketListener::stop(error); });
        EXPECT_TRUE(standIn.journal().waitFor("zmq_connect"));
        return stop;
    }

    void expectNoLine() {
        EXPECT_THAT(standIn.journal().linesWith("error: "), IsEmpty());
        EXPECT_THAT(standIn.journal().linesWith("warning: "), IsEmpty());
    }

    static constexpr std::chrono::seconds patience{10};
    std::list<RemoteSocket> peers;
};

class ListenerStrayFrames : public ListenerStray,
                            public testing::WithParamInterface<std::tuple<Transport::Transport, Stray>> {
protected:
    ListenerStrayFrames() {
        endpoint = freshEndpoint(std::get<Transport::Transport>(GetParam()));
        listener.serve(endpoint);
    }

    void sendThem() { send(std::get<Stray>(GetParam())); }
};

INSTANTIATE_TEST_SUITE_P(On, ListenerStrayFrames,
                         testing::Combine(testing::Values(Transport::Tcp, Transport::Ipc),
                                          testing::Values(emptyFrame, oneFrame, twoFrames, manyFrames, largeFrame,
                                                          emptyFrameBehind, severalMessages)),
                         [](const auto& tested) {
                             return Transport::ToString(std::get<Transport::Transport>(tested.param)) +
                                    std::get<Stray>(tested.param).name;
                         });

class ListenerStrayFlood : public ListenerStray, public testing::WithParamInterface<Transport::Transport> {};

INSTANTIATE_TEST_SUITE_P(On, ListenerStrayFlood, testing::Values(Transport::Tcp, Transport::Ipc), nameOfTransport);

} // namespace

TEST_P(ListenerStrayFrames, StopsInTime) {
    sendThem();

    expectStop(listener);

    EXPECT_THAT(listener.texts(), IsEmpty());
    expectNoLine();
}

TEST_P(ListenerStrayFrames, ServesTheNextRequest) {
    sendThem();

    EXPECT_EQ("question", ask(endpoint, "question"));

    expectNoLine();
}

TEST_P(ListenerStrayFrames, StopsAfterARepair) {
    listener.setHandler(ignore);
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");
    ASSERT_TRUE(standIn.journal().waitFor("debug: Connected [Socket service]", 2));
    sendThem();
    const std::size_t before = standIn.journal().linesWith("zmq_connect").size();

    expectStop(listener);

    EXPECT_EQ(before + 1, standIn.journal().linesWith("zmq_connect").size());

    EXPECT_EQ(1U, standIn.journal().count("warning: "));
}

TEST_P(ListenerStrayFrames, DestroysInTime) {
    const SocketEndpoint other = freshEndpoint(std::get<Transport::Transport>(GetParam()));
    auto bare = std::make_unique<BareListener>();
    ASSERT_TRUE(bare->addListenEndpoint(other.toString(Protocol::Req), error));
    ASSERT_TRUE(bare->start(error)) << error;
    send(std::get<Stray>(GetParam()), other);

    auto destruction = std::async(std::launch::async, [&] { bare.reset(); });

    EXPECT_EQ(std::future_status::ready, destruction.wait_for(patience));
}

TEST_F(ListenerStray, StopsWhenItBlocksLater) {
    std::promise<void> polled;
    std::promise<void> stopping;
    listener.setMaker([&] {
        polled.set_value();
        stopping.get_future().wait();
        return std::make_shared<Text>();
    });
    listener.serve(endpoint);
    peers.emplace_back(ZMQ_DEALER).connect(endpoint).send("x");
    polled.get_future().wait();

    expectStop(listener, [&] { stopping.set_value(); });
}

TEST_F(ListenerStray, StopsOnInproc) {
    endpoint = freshEndpoint(Transport::Inproc);
    std::ofstream(endpoint.address) << "a file that the address does not name";
    const NativeSocket prober = probeOnInproc();
    ASSERT_EQ(0, unlink(endpoint.address.c_str()));

    expectStop(listener);

    expectNoLine();
}

TEST_F(ListenerStray, StopsOnInprocIfALockFails) {
    endpoint = freshEndpoint(Transport::Inproc);
    const NativeSocket prober = probeOnInproc();
    standIn.journal().clear();
    auto stop = std::async(std::launch::async, [&] {
        const MutexFault fault(EAGAIN, 4); // the gate of the connect
        return listener.SocketListener::stop(error);
    });

    ASSERT_EQ(std::future_status::ready, stop.wait_for(patience));

    EXPECT_TRUE(stop.get()) << error;
    EXPECT_EQ(2U, standIn.journal().count("zmq_socket 3"));
    EXPECT_EQ(1U, standIn.journal().count("zmq_connect"));
}

TEST_F(ListenerStray, StopsWhenItsPathIsRemoved) {
    endpoint = freshEndpoint(Transport::Ipc);
    listener.serve(endpoint);
    send(oneFrame);
    ASSERT_EQ(0, unlink(endpoint.address.c_str()));

    expectStop(listener);
}

TEST_F(ListenerStray, StopsWhenItsPathIsReplaced) {
    endpoint = freshEndpoint(Transport::Ipc);
    listener.setHandler(ignore);
    listener.serve(endpoint);
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");
    ASSERT_TRUE(standIn.journal().waitFor("debug: Connected [Socket service]", 2));
    send(oneFrame);
    RemoteSocket heir(ZMQ_REP);
    heir.bind(endpoint);

    expectStop(listener);

    EXPECT_FALSE(heir.hasInputWithin(0));
}

TEST_F(ListenerStray, StopsOnWildcardAddresses) {
    for (const std::string& wildcard :
         {std::string("tcp://*:0"), std::string("ipc://*"), "ipc://@rk-socket-test-" + std::to_string(getpid())}) {
        RecordingListener chosen(Protocol::Rep);
        ASSERT_TRUE(chosen.addListenEndpoint(wildcard, error)) << error;
        ASSERT_TRUE(chosen.start(error)) << error;
        SocketEndpoint bound = chosen.lastEndpoint();
        bound.address = bound.transport == Transport::Tcp ? "127.0.0.1" : bound.address;
        send(oneFrame, bound);
        expectStop(chosen);
    }
    EXPECT_EQ(1U, standIn.journal().count("zmq_connect tcp://127.0.0.1:"));
}

TEST_F(ListenerStray, StopsWhenSomeAddressesFail) {
    ASSERT_TRUE(listener.addListenEndpoint(freshEndpoint(Transport::Inproc).toString(Protocol::Req), error));
    ASSERT_TRUE(listener.addListenEndpoint(freshEndpoint(Transport::Ipc).toString(Protocol::Req), error));
    listener.serve(endpoint);
    for (const int first : {1, 2}) {
        send(oneFrame);
        standIn.journal().clear();
        standIn.fail("zmq_connect", EINVAL, first, 2);

        expectStop(listener);

        EXPECT_EQ(3U, standIn.journal().count("zmq_connect"));
        ASSERT_TRUE(listener.start(error)) << error;
    }
}

TEST_F(ListenerStray, StopsWhenAPortIsUnknown) {
    ASSERT_TRUE(listener.addListenEndpoint("tcp://*:0", error)) << error;
    standIn.fail("zmq_getsockopt " + std::to_string(ZMQ_LAST_ENDPOINT), EINVAL);
    listener.serve(endpoint);
    ASSERT_EQ(1U, standIn.journal().count("zmq_getsockopt"));
    send(oneFrame);

    expectStop(listener);

    expectNoLine();
}

TEST_F(ListenerStray, StopsWhenALockFailsAtFirst) {
    listener.serve(endpoint);
    send(oneFrame);
    auto stop = std::async(std::launch::async, [&] {
        const MutexFault fault(EAGAIN, 3); // the locks are the socket's, the gate's and the context's
        const bool stopped = listener.SocketListener::stop(error);
        return ZmqHandle(getSocket(Protocol::Req)) != nullptr && stopped;
    });

    ASSERT_EQ(std::future_status::ready, stop.wait_for(patience));

    EXPECT_TRUE(stop.get()) << error;
}

TEST_F(ListenerStray, StopsOnceASocketIsFree) {
    listener.serve(endpoint);
    send(oneFrame);
    standIn.fail("zmq_socket", EMFILE, 1, 3);

    expectStop(listener);

    EXPECT_EQ(4U, standIn.journal().count("zmq_socket 3"));
    EXPECT_EQ(standIn.journal().count("zmq_socket") - 3, standIn.journal().count("zmq_close"));
}

TEST_F(ListenerStray, StopsWhenConnectingFailsAtFirst) {
    listener.serve(endpoint);
    send(oneFrame);
    standIn.fail("zmq_connect", EINVAL, 1, 3);

    expectStop(listener);

    EXPECT_EQ(standIn.journal().count("zmq_socket"), standIn.journal().count("zmq_close"));
}

TEST_F(ListenerStray, ServesAnEmptyRequestDuringStop) {
    std::future<bool> stop = stopUnwoken();
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");

    EXPECT_EQ("", client.receive());
    EXPECT_TRUE(stop.get()) << error;
    EXPECT_THAT(listener.texts(), ElementsAre(""));
}

TEST_F(ListenerStray, LogsABadRequestDuringStop) {
    std::future<bool> stop = stopUnwoken();
    NativeSocket client(Protocol::Req, endpoint);
    client.send("\xff");

    EXPECT_TRUE(stop.get()) << error;
    EXPECT_EQ(1U, standIn.journal().count("error: [Socket Listener rep] Failed handling received message: "));
}

TEST_F(ListenerStray, StopsWithASmallBuffer) {
    listener.setMessageBufferSize(5);
    listener.serve(endpoint);
    send(oneFrame);

    expectStop(listener);

    expectNoLine();
}

TEST_F(ListenerStray, TreatsTheWakeUpStringAsARequest) {
    listener.serve(endpoint);
    NativeSocket client(Protocol::Req, endpoint);
    client.send("rk::socket::detail::WakeUpCall");

    EXPECT_TRUE(standIn.journal().waitFor(
        "error: [Socket Listener rep] Failed handling received message: [Socket service]: Failed deserializing"));
}

TEST_F(ListenerStray, WaitsForTheNextHandler) {
    listener.setHandler([](Text& text, const std::shared_ptr<Socket>& socket) {
        std::promise<void>().get_future().wait_for(std::chrono::milliseconds(200)); // time for `stop` to see it
        echo(text, socket);
    });
    listener.serve(endpoint);
    send(oneFrame);
    NativeSocket client(Protocol::Req, endpoint);
    {
        const BeforeJoin hook([&] {
            client.send("");
            listener.waitForTexts(1);
        });
        EXPECT_TRUE(listener.SocketListener::stop(error)) << error;
    }

    EXPECT_EQ("", client.receive());
    EXPECT_EQ(0U, standIn.journal().count("zmq_connect"));
}

TEST_F(ListenerStray, StopsDuringARebuild) {
    listener.setHandler(ignore);
    listener.serve(endpoint);
    std::future<bool> stop;
    standIn.after("warning", [&] {
        std::promise<void> waits;
        stop = std::async(std::launch::async, [&] {
            const BeforeJoin hook([&] { waits.set_value(); });
            return listener.SocketListener::stop(error);
        });
        waits.get_future().wait();
    });
    NativeSocket client(Protocol::Req, endpoint);
    client.send("");

    ASSERT_TRUE(standIn.journal().waitFor("zmq_close", 2));
    EXPECT_TRUE(stop.get()) << error;
    EXPECT_EQ(0U, standIn.journal().count("zmq_connect"));
}

TEST_F(ListenerStray, ClosesTheSocketThatWakesIt) {
    listener.serve(endpoint);
    send(oneFrame);
    standIn.journal().clear();

    expectStop(listener);

    const std::vector<std::string> lines = standIn.journal().lines();
    EXPECT_EQ("zmq_socket 3", lines.at(0));
    EXPECT_EQ("zmq_setsockopt 17 = 0 (4 bytes)", lines.at(1));
    EXPECT_EQ("zmq_setsockopt 39 = 1 (4 bytes)", lines.at(2));
    EXPECT_EQ("zmq_connect tcp://127.0.0.1:" + std::to_string(endpoint.port), lines.at(3));
    EXPECT_EQ(wakeUp, lines.at(4));
    EXPECT_EQ(2U, standIn.journal().count("zmq_close"));
}

TEST_P(ListenerStrayFlood, ServesAndStops) {
    endpoint = freshEndpoint(GetParam());
    listener.serve(endpoint);
    std::atomic<bool> over{false};
    std::vector<std::thread> floods;
    for (int number = 0; number < 3; ++number) {
        floods.emplace_back([&] {
            RemoteSocket peer(ZMQ_DEALER);
            peer.set(ZMQ_SNDTIMEO, 100);
            peer.connect(endpoint);
            while (!over) {
                zmq_send(peer.get(), "x", 1, 0);
            }
        });
    }
    EXPECT_TRUE(standIn.journal().waitFor(receiving));

    EXPECT_EQ("question", ask(endpoint, "question"));
    expectStop(listener);

    over = true;
    for (std::thread& flood : floods) {
        flood.join();
    }
    expectNoLine();
}

TEST_F(ListenerStray, StopsASubscriber) {
    NativeSocket publisher(Protocol::Pub, endpoint);
    RecordingListener subscriber(Protocol::Sub);
    subscriber.serve(endpoint);
    while (standIn.journal().count(receiving) == 0) {
        publisher.send("", ZMQ_SNDMORE);
        publisher.send("\xff", ZMQ_SNDMORE);
        publisher.send(std::string(300000, 'x'));
    }

    expectStop(subscriber);

    EXPECT_EQ(0U, standIn.journal().count("zmq_socket 3"));
}

} // namespace rk::tests
