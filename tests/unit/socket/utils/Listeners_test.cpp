#include "support/BeforeJoin.h"
#include "support/Calls.h"
#include "support/NativeSocket.h"
#include "support/RecordingListener.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <list>

// Listeners with any number of endpoints and messages.

namespace rk::tests {

namespace {

class Listeners : public testing::TestWithParam<int> {
protected:
    Listeners() { takeFreshEndpoints(); }

    void takeFreshEndpoints() {
        endpoints.clear();
        for (int number = 0; number < GetParam(); ++number) {
            endpoints.push_back(freshEndpoint(static_cast<Transport::Transport>(1 + number * 7 % 3)));
        }
    }

    void addAll(RecordingListener& listener) {
        for (const SocketEndpoint& endpoint : endpoints) {
            ASSERT_TRUE(listener.addListenEndpoint(endpoint.toString(Protocol::Req), error)) << error;
        }
    }

    /// Returns the calls that attach the endpoints, in order.
    calls::Lines attached(Protocol::Protocol pattern) const {
        calls::Lines lines;
        for (const SocketEndpoint& endpoint : endpoints) {
            lines.push_back(calls::attach(pattern) + " " + endpoint.toString(pattern));
        }
        return lines;
    }

    const ContextOfTheProcess context;
    std::vector<SocketEndpoint> endpoints;
    std::string error;
    StandIn standIn;
};

INSTANTIATE_TEST_SUITE_P(Of, Listeners, testing::Values(1, 2, 3, 4, 5, 7, 11, 20));

} // namespace

TEST_P(Listeners, ConnectsInOrderAtEveryStart) {
    for (const auto pattern : {Protocol::Rep, Protocol::Sub}) {
        takeFreshEndpoints();
        std::list<NativeSocket> publishers;
        for (const SocketEndpoint& endpoint : endpoints) {
            if (pattern == Protocol::Sub) {
                publishers.emplace_back(Protocol::Pub).bind(endpoint);
            }
        }
        RecordingListener listener(pattern);
        addAll(listener);
        for (int round = 0; round < 3; ++round) {
            standIn.journal().clear();
            ASSERT_TRUE(listener.start(error)) << error;
            EXPECT_EQ(endpoints.size(), standIn.journal().count("debug: Connected"));
            EXPECT_EQ(attached(pattern), calls::once(standIn.journal().linesWith(calls::attach(pattern))));
            ASSERT_TRUE(listener.stop(error)) << error;
        }
    }
}

TEST_P(Listeners, ServesEachEndpoint) {
    RecordingListener listener(Protocol::Rep);
    addAll(listener);
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(listener.start(error)) << error;
        for (const SocketEndpoint& endpoint : endpoints) {
            EXPECT_EQ("question", ask(endpoint, "question"));
        }
        ASSERT_TRUE(listener.stop(error)) << error;
    }
}

TEST_P(Listeners, ServesEndpointsAddedWhileItRuns) {
    RecordingListener listener(Protocol::Rep);
    ASSERT_TRUE(listener.start(error)) << error;
    for (std::size_t number = 0; number < endpoints.size(); ++number) {
        ASSERT_TRUE(listener.addListenEndpoint(endpoints[number].toString(Protocol::Req), error)) << error;
        EXPECT_EQ("newest", ask(endpoints[number], "newest"));
        EXPECT_EQ("oldest", ask(endpoints[0], "oldest"));
        EXPECT_EQ("one", ask(endpoints[number / 2], "one"));
    }
    EXPECT_THAT(standIn.journal().linesWith("error: "), ElementsAre());
}

TEST_P(Listeners, ReportsEachFailedEndpoint) {
    for (std::size_t failing = 0; failing < endpoints.size(); ++failing) {
        NativeSocket holder(Protocol::Rep);
        SocketEndpoint taken = freshEndpoint(Transport::Tcp);
        holder.bind(taken);
        std::swap(taken, endpoints[failing]);
        RecordingListener listener(Protocol::Rep);
        addAll(listener);
        std::swap(taken, endpoints[failing]);
        standIn.journal().clear();
        ASSERT_TRUE(listener.start(error)) << error;
        EXPECT_TRUE(standIn.journal().waitFor("error: [Socket Listener rep] Failed reading socket"));

        calls::Lines expected;
        for (std::size_t number = failing; number < endpoints.size(); ++number) {
            const SocketEndpoint& endpoint = number == failing ? taken : endpoints[number];
            expected.push_back("error: [Socket Listener on service]: Failed connecting endpoint " +
                               endpoint.toString(Protocol::Undef) + ": Socket: " +
                               (number == failing
                                    ? "Failed connecting/binding socket: Address already in use on [Socket service]"
                                    : "Cannot connect a NULL socket"));
        }
        EXPECT_EQ(expected, standIn.journal().linesWith("error: [Socket Listener on"));
        EXPECT_EQ(failing, standIn.journal().count("debug: Connected"));
    }
}

TEST_P(Listeners, RebuildsInOrderEveryTime) {
    RecordingListener listener(Protocol::Rep);
    addAll(listener);
    ASSERT_TRUE(listener.start(error)) << error;
    listener.setHandler([](auto&, const auto&) {});
    for (int round = 0; round < 3; ++round) {
        for (const SocketEndpoint& endpoint : endpoints) {
            NativeSocket client(Protocol::Req, endpoint);
            standIn.journal().clear();
            client.send("");
            ASSERT_TRUE(standIn.journal().waitFor("debug: Connected", endpoints.size()));
            EXPECT_EQ(attached(Protocol::Rep), calls::once(standIn.journal().linesWith("zmq_bind")));
            EXPECT_EQ(1U, standIn.journal().count("zmq_close"));
            EXPECT_EQ(1U, standIn.journal().count(calls::repairWarning("service")));
        }
    }
    listener.setHandler(echo);
    for (const SocketEndpoint& endpoint : endpoints) {
        EXPECT_EQ("question", ask(endpoint, "question"));
    }
}

TEST_P(Listeners, HandlesEveryMessageOfManyInOrder) {
    RecordingListener listener(Protocol::Sub);
    std::list<Socket> publishers; // with unlimited queues, which the greetings cannot fill
    std::vector<std::string> sent;
    std::atomic<std::size_t> made{0};
    std::atomic<const Text*> newest{nullptr};
    listener.setMaker([&] {
        auto message = std::make_shared<Text>();
        newest = message.get();
        ++made;
        return message;
    });
    listener.setHandler([&](Text& text, const auto&) { EXPECT_EQ(newest, &text); });
    addAll(listener);
    for (const SocketEndpoint& endpoint : endpoints) {
        Socket& publisher = publishers.emplace_back("source", ClosePolicy::DropPending);
        publisher.create(Protocol::Pub);
        publisher.setInternalFifoSize(0);
        publisher.connect(endpoint, 0);
    }
    ASSERT_TRUE(listener.start(error)) << error;
    std::size_t handled = 0;
    for (Socket& publisher : publishers) {
        do {
            sendText(publisher, ""); // Until it is subscribed to.
        } while (listener.texts().size() == handled);
        Text text;
        for (int number = 0; number < 1000 / GetParam(); ++number) {
            text.set_text(std::to_string(number));
            sent.push_back(text.text());
            publisher.sendProtoBuf(&text);
        }
        std::vector<std::string> received;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (received.size() < sent.size() && std::chrono::steady_clock::now() < deadline) {
            received = listener.texts();
            received.erase(std::remove(received.begin(), received.end(), ""), received.end());
        }
        ASSERT_EQ(sent, received);
        handled = listener.texts().size();
    }
    ASSERT_TRUE(listener.stop(error)) << error;
    EXPECT_EQ(listener.texts().size(), made);
}

TEST_P(Listeners, HandlesTheMessageThatAPollReported) {
    const auto handledBefore = static_cast<std::size_t>(GetParam());
    RecordingListener listener(Protocol::Sub);
    NativeSocket publisher(Protocol::Pub);
    publisher.bind(endpoints[0]);
    std::promise<void> queued;
    std::promise<void> stopNow;
    std::promise<void> stopping;
    std::atomic<bool> last{false};
    listener.setHandler([&](auto&, const auto&) {
        if (listener.texts().size() == 1) {
            queued.get_future().wait();
        }
        last = listener.texts().size() == handledBefore;
    });
    standIn.after("zmq_poll", [&] {
        if (last.exchange(false)) {
            stopNow.set_value();
            stopping.get_future().wait();
        }
    });
    listener.serve(endpoints[0]);
    do {
        publisher.send(""); // Until it is subscribed to.
    } while (listener.texts().empty());
    for (int number = 1; number < 100; ++number) {
        publisher.send("");
    }
    queued.set_value();
    stopNow.get_future().wait();
    {
        const BeforeJoin hook([&] { stopping.set_value(); });
        EXPECT_TRUE(listener.SocketListener::stop(error)) << error;
    }
    EXPECT_EQ(handledBefore + 1, listener.texts().size());
}

TEST_P(Listeners, HandlesNoMessageAfterStop) {
    const auto handledBefore = static_cast<std::size_t>(GetParam());
    RecordingListener listener(Protocol::Rep);
    std::promise<void> stopNow;
    std::promise<void> stopping;
    listener.setHandler([&](Text& text, const std::shared_ptr<Socket>& socket) {
        if (listener.texts().size() == handledBefore) {
            stopNow.set_value();
            stopping.get_future().wait();
        }
        echo(text, socket);
    });
    std::list<NativeSocket> clients;
    addAll(listener);
    for (int number = 0; number < 50; ++number) {
        clients.emplace_back(Protocol::Req);
    }
    ASSERT_TRUE(listener.start(error)) << error;
    for (NativeSocket& client : clients) {
        client.connect(endpoints[0]);
        client.send("");
    }
    stopNow.get_future().wait();
    {
        const BeforeJoin hook([&] { stopping.set_value(); });
        EXPECT_TRUE(listener.SocketListener::stop(error)) << error;
    }
    EXPECT_EQ(handledBefore, listener.texts().size());
}

} // namespace rk::tests
