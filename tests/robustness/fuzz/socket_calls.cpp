#include "robustness/fuzz/Boundary.h"
#include "robustness/fuzz/Bytes.h"
#include "robustness/fuzz/ModelSocket.h"
#include "robustness/fuzz/Require.h"
#include "support/ZmqHandle.h"
#include "support/messages.pb.h"
#include "tools/messages/Protobuf.h"

#include <rk/socket/Socket.h>
#include <rk/socket/TimeoutException.h>
#include <rk/socket/ZmqContextTerminationException.h>

#include <zmq.h>

#include <chrono>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// The bytes choose calls on several sockets, and faults in the functions that these call. A model determines the
/// required result of each call.

namespace rk::tests {

namespace {

using google::protobuf::Message;
using socket::Socket;
using socket::SocketEndpoint;
namespace ClosePolicy = socket::ClosePolicy;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;

/// Only a few, so that sockets share them. Two differ only by the host, which a binding socket ignores. Two are
/// invalid.
const SocketEndpoint endpoints[] = {{Transport::Inproc, "a", 0},
                                    {Transport::Inproc, "9a", 1},
                                    {Transport::Ipc, "/a", 0},
                                    {Transport::Tcp, "h", 1},
                                    {Transport::Tcp, "other", 1},
                                    {Transport::Tcp, "h", 2},
                                    {},
                                    {static_cast<Transport::Transport>(19), "a", 0}};

const unsigned int timeouts[] = {0, 1, 2000, 2147483647, 2147483648, 4294967295};
const int queueSizes[] = {0, 1, 2, 1000, -1, std::numeric_limits<int>::min()};
const unsigned int blockSizes[] = {0, 1, 1000, 1048576, 2147483648, 4294967295};
const std::int64_t clockMoves[] = {1, 1000, 1000000, 3600000000, -1, -1000000, -3600000000, -2000000000000000};
const int errors[] = {0, EINTR, EAGAIN, ETERM, EFSM, EADDRINUSE, EINVAL, EMFILE, ENOMEM, ENOTSOCK};

template <class Value, std::size_t count>
const Value& oneOf(const Value (&values)[count], Bytes& bytes) {
    return values[bytes.below(count)];
}

/// The result of an operation for its caller.
struct Outcome {
    std::string thrown;
    int result = 0;
    std::string text;
};

/// Runs an operation of the library or of the model, which fills the outcome.
template <class Operation>
Outcome outcomeOf(const Operation& operation) {
    Outcome outcome;
    try {
        operation(outcome);
    } catch (const socket::ZmqContextTerminationException& failure) {
        outcome.thrown = std::string("context terminated: ") + failure.what();
    } catch (const socket::TimeoutException& failure) {
        outcome.thrown = std::string("timeout: ") + failure.what();
    } catch (const std::runtime_error& failure) {
        outcome.thrown = failure.what();
        require(typeid(failure) == typeid(std::runtime_error), "the exception is of another type");
    }
    return outcome;
}

/// A socket of the library and its model.
struct Subject {
    std::unique_ptr<Socket> socket;
    std::unique_ptr<ModelSocket> model;
};

/// The sockets of one input.
class World {
public:
    World() {
        for (Subject& subject : subjects) {
            build(subject, ClosePolicy::DropPending);
        }
    }
    ~World() {
        for (Subject& subject : subjects) {
            destroy(subject);
        }
    }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    void step(Bytes& bytes) {
        const unsigned int choice = bytes.byte();
        Subject& subject = subjects[choice % std::size(subjects)];
        switch (choice / std::size(subjects) % 24) {
        case 0:
            return create(subject, bytes);
        case 1:
            return both(subject, [](auto& socket, Outcome&) { socket.close(); });
        case 2:
            return connect(subject, bytes);
        case 3:
        case 4:
        case 5:
            return createAndConnect(subject, bytes);
        case 6:
            return both(subject, [](auto& socket, Outcome&) { socket.resetConnections(); });
        case 7:
        case 8:
        case 9:
            return send(subject, bytes);
        case 10:
        case 11:
            return receive(subject, bytes);
        case 12:
        case 13:
            return sendProtoBuf(subject, bytes);
        case 14:
        case 15:
            return receiveProtoBuf(subject, bytes);
        case 16:
            return poll(subject, bytes);
        case 17:
            return both(subject, [](auto& socket, Outcome&) { socket.flushIncomingMessages(); });
        case 18:
            return tune(subject, bytes);
        case 19:
            return count(subject, bytes);
        case 20:
            return boundary.moveClock(oneOf(clockMoves, bytes));
        case 21:
            return rebuild(subject, bytes);
        default:
            return inject(bytes);
        }
    }

private:
    void build(Subject& subject, ClosePolicy::ClosePolicy policy) {
        const std::string name(1, static_cast<char>('a' + (&subject - subjects)));
        subject.socket = std::make_unique<Socket>(name, policy);
        subject.model = std::make_unique<ModelSocket>(name, policy, script, addresses());
    }

    void destroy(Subject& subject) {
        record([&] { subject.socket.reset(); });
        subject.model->close();
        script.requireEnd();
    }

    /// Returns the released addresses. They outlive an input, because the library remembers them too.
    static Addresses& addresses() {
        static Addresses instance;
        return instance;
    }

    void record(const std::function<void()>& operation) {
        const auto begin = std::chrono::steady_clock::now();
        std::vector<Event> events = boundary.eventsOf(operation);
        script.begin(std::move(events), std::chrono::steady_clock::now() - begin);
    }

    /// Runs the library first, and then the model on the script of the library's calls.
    template <class Operation>
    void both(Subject& subject, const Operation& operation) {
        Outcome actual;
        record([&] { actual = outcomeOf([&](Outcome& outcome) { operation(*subject.socket, outcome); }); });
        const Outcome expected = outcomeOf([&](Outcome& outcome) { operation(*subject.model, outcome); });
        requireEqual(expected.thrown, actual.thrown, "the operation throws something else");
        require(expected.result == actual.result, "the operation returns something else");
        requireEqual(expected.text, actual.text, "the operation fills in something else");
        script.requireEnd();
    }

    void create(Subject& subject, Bytes& bytes) {
        const auto pattern = static_cast<Protocol::Protocol>(static_cast<int>(bytes.below(7)) - 1);
        both(subject, [&](auto& socket, Outcome&) { socket.create(pattern); });
    }

    void connect(Subject& subject, Bytes& bytes) {
        const SocketEndpoint& endpoint = oneOf(endpoints, bytes);
        const unsigned int timeout = oneOf(timeouts, bytes);
        both(subject, [&](auto& socket, Outcome&) { socket.connect(endpoint, timeout); });
    }

    void createAndConnect(Subject& subject, Bytes& bytes) {
        const auto pattern = static_cast<Protocol::Protocol>(1 + bytes.below(4));
        const SocketEndpoint& endpoint = oneOf(endpoints, bytes);
        both(subject, [&](auto& socket, Outcome&) { socket.createAndConnect(pattern, endpoint, 0); });
    }

    void send(Subject& subject, Bytes& bytes) {
        std::string message = std::to_string(++messages) + std::string(bytes.byte(), 'x');
        both(subject, [&](auto& socket, Outcome&) { socket.send(message.data(), message.size()); });
    }

    void receive(Subject& subject, Bytes& bytes) {
        const unsigned int size = bytes.byte();
        both(subject, [&](auto& socket, Outcome& outcome) {
            const std::unique_ptr<char[]> buffer = std::make_unique<char[]>(size);
            outcome.result = socket.receive(buffer.get(), size);
            outcome.text.assign(buffer.get(), size);
        });
    }

    void sendProtoBuf(Subject& subject, Bytes& bytes) {
        const unsigned int choice = bytes.byte();
        const std::unique_ptr<Message> message = messageOf(choice);
        if (auto* const text = dynamic_cast<Text*>(message.get())) {
            text->set_text(std::to_string(++messages) + std::string(choice, 'y'));
        } else if (auto* const command = dynamic_cast<Command*>(message.get())) {
            fill(*command, choice);
        }
        both(subject, [&](auto& socket, Outcome&) { socket.sendProtoBuf(message.get()); });
    }

    void fill(Command& command, unsigned int choice) {
        if ((choice & 16U) != 0) {
            command.set_id(++messages);
        }
        if ((choice & 32U) != 0) {
            command.mutable_header();
        }
        if ((choice & 64U) != 0) {
            command.mutable_header()->set_time(1.0);
        }
    }

    /// Returns null, a text or a command.
    static std::unique_ptr<Message> messageOf(unsigned int choice) {
        switch (choice % 4) {
        case 0:
            return nullptr;
        case 1:
            return std::make_unique<Command>();
        default:
            return std::make_unique<Text>();
        }
    }

    void receiveProtoBuf(Subject& subject, Bytes& bytes) {
        const unsigned int choice = bytes.byte();
        const unsigned int size = (choice & 128U) != 0 ? bytes.number() : bytes.byte();
        both(subject, [&](auto& socket, Outcome& outcome) {
            const std::unique_ptr<Message> message = messageOf(choice);
            try {
                socket.receiveProtoBuf(message.get(), size);
            } catch (const std::runtime_error&) {
                outcome.text = message ? message->SerializePartialAsString() : "";
                throw;
            }
            outcome.text = message->SerializePartialAsString();
        });
    }

    void poll(Subject& subject, Bytes& bytes) {
        const unsigned int timeout = oneOf(timeouts, bytes);
        both(subject, [&](auto& socket, Outcome& outcome) {
            outcome.text = "untouched";
            outcome.result = socket.poll(timeout, outcome.text);
        });
    }

    void tune(Subject& subject, Bytes& bytes) {
        const unsigned int choice = bytes.byte();
        const int queueSize = queueSizes[choice % std::size(queueSizes)];
        both(subject, [&](auto& socket, Outcome& outcome) {
            switch (choice % 4) {
            case 0:
                return socket.setTargetBitRate(choice / 4);
            case 1:
            case 2:
                return socket.activateStatistics(choice % 4 == 1);
            default:
                outcome.text = socket.debugString();
                return socket.setInternalFifoSize(queueSize);
            }
        });
    }

    /// Counts many blocks at once, because a period of the statistics has 50.
    void count(Subject& subject, Bytes& bytes) {
        const unsigned int size = oneOf(blockSizes, bytes);
        const unsigned int choice = bytes.byte();
        both(subject, [&](auto& socket, Outcome&) {
            if (choice % 2 == 0) {
                return socket.handleBitRateCapping(size);
            }
            for (unsigned int block = 0; block < choice % 64; ++block) {
                socket.addBlockToStatistics(size);
            }
        });
    }

    void rebuild(Subject& subject, Bytes& bytes) {
        destroy(subject);
        build(subject, static_cast<ClosePolicy::ClosePolicy>(bytes.below(4)));
    }

    /// Limits the number of injected EADDRINUSE errors, because the library retries after each.
    void inject(Bytes& bytes) {
        const unsigned int choice = bytes.byte();
        const unsigned int times[] = {1, 2, 3, std::numeric_limits<unsigned int>::max()};
        const int error = oneOf(errors, bytes);
        boundary.injectNext({1 + choice % 8, times[choice / 8 % (error == EADDRINUSE ? 3 : 4)], error});
    }

    Boundary boundary;
    Script script;
    Subject subjects[3];
    int messages = 0;
};

/// Protobuf would log every message that it cannot parse.
const bool isSilent = (tools::silenceProtobuf(), true);

} // namespace

} // namespace rk::tests

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const rk::tests::ContextOfTheProcess context;
    rk::tests::Bytes bytes(data, size);
    rk::tests::World world;
    while (bytes.areLeft()) {
        world.step(bytes);
    }
    return 0;
}
