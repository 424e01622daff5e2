#include "support/Endpoints.h"
#include "support/Patterns.h"
#include "support/StandIn.h"
#include "support/messages.pb.h"

#include <rk/socket/Socket.h>
#include <rk/socket/utils/SocketListener.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace rk::tests {

namespace {

using socket::Socket;
using socket::SocketEndpoint;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

class Echo : public socket::utils::SocketListener {
public:
    Echo() : SocketListener(Protocol::Rep, "echo") {}
    ~Echo() override {
        std::string error;
        stop(error);
    }
    std::shared_ptr<google::protobuf::Message> createMessage() override { return std::make_shared<Text>(); }
    void handleMessage(google::protobuf::Message* message, std::shared_ptr<Socket> socket) override {
        socket->sendProtoBuf(message);
    }
};

/// One client at a time: 0MQ takes closed sockets back in a thread of its own, which falls behind a hundred that open
/// sockets as fast as they can, until none of its 1,023 are left.
bool answers(const SocketEndpoint& endpoint) {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    Socket client("client", socket::ClosePolicy::DropPending);
    client.createAndConnect(Protocol::Req, endpoint, 20000);
    Text question;
    question.set_text("question");
    client.sendProtoBuf(&question);
    Text answer;
    client.receiveProtoBuf(&answer, 100);
    return answer.text() == "question";
}

/// Restarts one running listener by adding endpoints, each of which must answer from then on.
void restart(Transport::Transport transport, int times) {
    Echo listener;
    std::vector<SocketEndpoint> endpoints;
    std::string error;
    for (int time = 0; time <= times; ++time) {
        endpoints.push_back(freshEndpoint(transport));
        ASSERT_TRUE(listener.addListenEndpoint(endpoints.back().toString(Protocol::Req), error)) << error;
        if (time == 0) {
            ASSERT_TRUE(listener.start(error)) << error;
        }
        for (const SocketEndpoint& endpoint : endpoints) {
            ASSERT_TRUE(answers(endpoint));
        }
    }
}

/// Each endpoint takes descriptors, more of them than a process usually may have.
void allowManyDescriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

class ListenerRestart : public testing::TestWithParam<Transport::Transport> {};

INSTANTIATE_TEST_SUITE_P(On, ListenerRestart, everyTransport(), nameOfTransport);

} // namespace

/// A thousand restarts, by many listeners side by side: each stop lasts up to a second.
TEST_P(ListenerRestart, ServesEachAThousandTimes) {
    allowManyDescriptors();
    StandIn standIn;
    const char* const rounds = std::getenv("RK_TEST_ROUNDS");
    const int listenerCount = (rounds != nullptr ? std::atoi(rounds) : 1000) / 10;
    std::vector<std::thread> threads;
    for (int number = 0; number < listenerCount; ++number) {
        threads.emplace_back([] { EXPECT_NO_THROW(restart(GetParam(), 10)); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0U, standIn.journal().count("error: "));
}

} // namespace rk::tests
