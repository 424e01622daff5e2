#include "support/Allocations.h"
#include "support/FakeMessage.h"
#include "support/Feed.h"
#include "support/Test.h"
#include "support/interpose/Interpose.h"
#include "support/messages.pb.h"

#include <new>

namespace rk::tests {

namespace {

using testing::Not;

/// Never destroyed, because the library logs until the process ends.
std::vector<std::string>& debugLines() {
    static auto* const lines = std::make_unique<std::vector<std::string>>().release();
    return *lines;
}

class Transfer : public testing::Test {
protected:
    void SetUp() override {
        if (!seesAllocations()) {
            GTEST_SKIP() << "a tool has replaced operator new";
        }
        text.set_text(std::string(98, 'x'));
        bytes = text.SerializeAsString();
        debugLines().clear();
    }

    /// Sends the message and receives it.
    void pass(unsigned int size) {
        feed.publisher.sendProtoBuf(&text);
        feed.subscriber.receiveProtoBuf(&received, size);
    }

    void count(int blocks) {
        for (int block = 0; block < blocks; ++block) {
            feed.publisher.addBlockToStatistics(10);
        }
    }

    Feed feed;
    Text text;
    Text received;
    std::string bytes;
};

class TransferWithoutMemory : public Transfer {};

} // namespace

TEST_F(Transfer, AllocatesTheExactSize) {
    const Allocations made = allocationsOf([&] {
        feed.publisher.sendProtoBuf(&text);
        feed.publisher.sendProtoBuf(&text);
    });

    EXPECT_THAT(made.all, ElementsAre(100, 100));
    EXPECT_THAT(made.arrays, ElementsAre(100, 100));
    EXPECT_THAT(made.arraysAlive, IsEmpty());
}

TEST_F(Transfer, AllocatesNoBytesWhenEmpty) {
    Text empty;

    const Allocations made = allocationsOf([&] { feed.publisher.sendProtoBuf(&empty); });

    EXPECT_THAT(made.all, ElementsAre(0));
    EXPECT_THAT(made.arraysAlive, IsEmpty());
}

TEST_F(Transfer, ReleasesItsBufferWhenSendThrows) {
    feed.publisher.close();

    const Allocations made = allocationsOf([&] {
        EXPECT_EQ("Socket: Cannot send on a NULL socket", textThrownBy([&] { feed.publisher.sendProtoBuf(&text); }));
    });

    EXPECT_THAT(made.arrays, ElementsAre(100));
    EXPECT_THAT(made.arraysAlive, IsEmpty());
}

TEST_F(Transfer, ReleasesItsBufferWhenMessageChanged) {
    FakeMessage message(10, 9, 9);

    const Allocations made = allocationsOf([&] { EXPECT_ANY_THROW(feed.publisher.sendProtoBuf(&message)); });

    EXPECT_THAT(made.arrays, ElementsAre(10));
    EXPECT_THAT(made.arraysAlive, IsEmpty());
}

TEST_F(Transfer, AllocatesNothingForARejectedMessage) {
    FakeMessage tooLong(2147483648U, 0);
    Command incomplete;
    textThrownBy([&] { feed.publisher.sendProtoBuf(&incomplete); }); // because protobuf reads the descriptors once

    const Allocations made = allocationsOf([&] {
        textThrownBy([&] { feed.publisher.sendProtoBuf(nullptr); });
        textThrownBy([&] { feed.publisher.sendProtoBuf(&tooLong); });
        textThrownBy([&] { feed.publisher.sendProtoBuf(&incomplete); });
    });

    EXPECT_THAT(made.arrays, IsEmpty());
}

TEST_F(Transfer, KeepsTheReceiveBuffer) {
    received = text;

    const Allocations made = allocationsOf([&] {
        pass(1000);
        pass(1000);
        pass(1);
    });

    EXPECT_THAT(made.all, ElementsAre(100, 1000, 100, 100));
    EXPECT_THAT(made.arraysAlive, ElementsAre(1000));
}

TEST_F(Transfer, ReplacesTheReceiveBuffer) {
    const Allocations made = allocationsOf([&] {
        pass(1000);
        pass(2000);
    });

    EXPECT_THAT(made.arrays, ElementsAre(100, 1000, 100, 2000));
    EXPECT_THAT(made.arraysAlive, ElementsAre(2000));
}

TEST_F(Transfer, ReleasesTheReceiveBuffer) {
    const Allocations made = allocationsOf([&] {
        Socket socket("updates", ClosePolicy::DropPending);
        textThrownBy([&] { socket.receiveProtoBuf(&received, 1000); });
    });

    EXPECT_THAT(made.arrays, ElementsAre(1000));
    EXPECT_THAT(made.arraysAlive, IsEmpty());
}

TEST_F(Transfer, AllocatesNothingForABadCall) {
    const Allocations made = allocationsOf([&] {
        textThrownBy([&] { feed.subscriber.receiveProtoBuf(nullptr, 1000); });
        textThrownBy([&] { feed.subscriber.receiveProtoBuf(&received, 0); });
    });

    EXPECT_THAT(made.arrays, IsEmpty());
}

TEST_F(Transfer, DiscardsWithOneBuffer) {
    for (int number = 0; number < 5; ++number) {
        feed.publisher.send(bytes.data(), bytes.size());
    }

    const Allocations made = allocationsOf([&] { feed.subscriber.flushIncomingMessages(); });

    EXPECT_THAT(made.all, ElementsAre(100000));
    EXPECT_THAT(allocationsOf([&] { feed.subscriber.flushIncomingMessages(); }).all, IsEmpty());
}

TEST_F(Transfer, AllocatesForStatisticsLines) {
    EXPECT_THAT(allocationsOf([&] { count(49); }).all, IsEmpty());
    EXPECT_THAT(allocationsOf([&] { count(1); }).all, Not(IsEmpty()));
}

TEST_F(TransferWithoutMemory, SendsTheNextMessage) {
    std::string error;
    allocationsOf([&] { EXPECT_THROW(feed.publisher.sendProtoBuf(&text), std::bad_alloc); }, 100);
    EXPECT_EQ(PollResult::Timeout, feed.subscriber.poll(0, error));

    pass(1000);

    EXPECT_EQ(text.text(), received.text());
}

TEST_F(TransferWithoutMemory, KeepsTheReceiveBuffer) {
    pass(100);
    feed.publisher.sendProtoBuf(&text);
    allocationsOf([&] { EXPECT_THROW(feed.subscriber.receiveProtoBuf(&received, 1000), std::bad_alloc); }, 1000);

    feed.subscriber.receiveProtoBuf(&received, 100);

    EXPECT_EQ(text.text(), received.text());
    text.mutable_text()->push_back('y');
    EXPECT_EQ("[Socket feed]: Receive buffer size too small: Required: 101, Actual: 100",
              textThrownBy([&] { pass(100); }));
}

TEST_F(TransferWithoutMemory, ClosesWhenConnectFails) {
    Socket socket("short", ClosePolicy::DropPending);
    socket.create(Protocol::Req);
    const SocketEndpoint endpoint(Transport::Inproc, "a name that is longer than a short text", 0);
    bool isRefused = false;
    allocationsOf(
        [&] {
            try {
                socket.connect(endpoint, 0);
            } catch (const std::bad_alloc&) {
                isRefused = true;
            }
        },
        1);

    EXPECT_TRUE(isRefused);
    EXPECT_EQ("Socket: Cannot send on a NULL socket", textThrownBy([&] { socket.sendProtoBuf(&text); }));
}

TEST_F(TransferWithoutMemory, DropsALine) {
    allocationsOf([&] { count(50); }, 1);
    EXPECT_THAT(debugLines(), IsEmpty());

    count(50);

    EXPECT_THAT(debugLines(), ElementsAre(StartsWith("[Socket source]: Rate is ")));
}

void log(const char* level, const std::string& text, void (* /*write*/)(const std::string&)) {
    if (level == std::string("debug")) {
        debugLines().push_back(text);
    }
}

} // namespace rk::tests
