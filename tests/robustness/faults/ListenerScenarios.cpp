#include "Inject.h"
#include "Steps.h"
#include "support/Endpoints.h"
#include "support/ZmqHandle.h"
#include "support/messages.pb.h"

#include <rk/socket/Network.h>
#include <rk/socket/utils/SocketListener.h>

#include <zmq.h>

#include <chrono>
#include <future>
#include <stdexcept>
#include <system_error>

namespace rk::tests {

namespace {

/// Echoes its requests. The handler throws if the request is "fail".
class EchoListener : public socket::utils::SocketListener {
public:
    using SocketListener::requireHandler;
    using SocketListener::setMessageBufferSize;
    using SocketListener::SocketListener;
    using SocketListener::startOnAll;
    ~EchoListener() override {
        std::string error;
        stop(error);
    }
    std::shared_ptr<google::protobuf::Message> createMessage() override {
        Faults::operation().progress = {};
        return std::make_shared<Text>();
    }
    void handleMessage(google::protobuf::Message* message, std::shared_ptr<Socket> socket) override {
        if (dynamic_cast<Text&>(*message).text() == "fail") {
            throw std::runtime_error("the handler fails");
        }
        socket->sendProtoBuf(message);
    }
};

using ListenerPointer = std::shared_ptr<std::unique_ptr<EchoListener>>;

struct Service {
    PartyPointer party;
    ListenerPointer listener;
    socket::SocketEndpoint endpoint;
};

/// An operation that returns false and an error text if it fails.
Step reportingCall(const Service& service, const std::string& operation,
                   const std::function<bool(EchoListener&, std::string&)>& run) {
    return call(operation, service.party, [=] {
        std::string error;
        if (!run(**service.listener, error)) {
            throw Reported{error};
        }
    });
}

Step construct(const Service& service) {
    return call("SocketListener", service.party, [=] {
        if (!*service.listener) {
            *service.listener = std::make_unique<EchoListener>(service.party->pattern, service.party->name);
        }
    });
}

Step addListenEndpoint(const Service& service, const std::string& endpoint) {
    return reportingCall(service, "addListenEndpoint", [=](EchoListener& listener, std::string& error) {
        return listener.addListenEndpoint(endpoint, error);
    });
}

Step start(const Service& service) {
    Step step = reportingCall(service, "start", &EchoListener::start);
    step.debug = linesOfConnect(*service.party, service.endpoint);
    step.endpoint = service.endpoint.toString(Protocol::Undef);
    return step;
}

bool isExcused() {
    return Faults::struckOthers() || Faults::instance().listenerIsDeaf;
}

Step startOnAll(const Service& service) {
    Step step = start(service);
    step.operation = "startOnAll";
    step.run = reportingCall(service, "startOnAll", &EchoListener::startOnAll).run;
    return step;
}

Step lastEndpoint(const Service& service) {
    return call("lastEndpoint", service.party, [=] {
        const Transport::Transport transport = (*service.listener)->lastEndpoint().transport;
        require(isExcused() || transport == service.endpoint.transport, "it listens elsewhere");
    });
}

Step refusing(const Service& service, const std::string& operation, const std::string& text,
              void (*run)(EchoListener& listener)) {
    return refused(call(operation, service.party, [=] { run(**service.listener); }), "std::invalid_argument",
                   "[Socket Listener rep] " + text);
}

Step stop(const Service& service) {
    Step step = reportingCall(service, "stop", &EchoListener::stop);
    step.endsThread = true;
    return step;
}

Step destroyListener(const Service& service) {
    return call("~SocketListener", service.party, [=] { service.listener->reset(); });
}

/// Returns whether a reply arrives. There may be none if a fault was injected into the listener's thread.
bool isAnswered(Socket& client) {
    using Clock = std::chrono::steady_clock;
    std::string error;
    Clock::time_point deadline = Clock::now() + std::chrono::seconds(10);
    bool struck = false;
    while (Clock::now() < deadline) {
        if (client.poll(2, error) == PollResult::Input) {
            return true;
        }
        if (!struck && isExcused()) {
            struck = true;
            deadline = Clock::now() + std::chrono::milliseconds(30);
        }
    }
    require(isExcused(), "nothing is answered");
    return false;
}

/// A request of a client without faults.
Step ask(const Service& service, const std::string& question) {
    return call("ask", nullptr, [=] {
        const Unwatched unwatched;
        Socket client("the one who asks", socket::ClosePolicy::DropPending);
        client.createAndConnect(Protocol::Req, service.endpoint, 0);
        Text text;
        text.set_text(question);
        client.sendProtoBuf(&text);
        if (question != "fail" && isAnswered(client)) {
            Text answer;
            client.receiveProtoBuf(&answer, 1000);
            require(answer.text() == question, "another answer");
        }
    });
}

Service serviceOn(const socket::SocketEndpoint& endpoint) {
    return {party("the one who listens", Protocol::Rep), std::make_shared<std::unique_ptr<EchoListener>>(), endpoint};
}

Step reporting(Step step, const std::string& text) {
    step.debug.clear();
    return refused(std::move(step), "result", text);
}

std::vector<Step> serve() {
    const Service service = serviceOn(freshEndpoint(Transport::Tcp));
    const std::string endpoint = service.endpoint.toString(Protocol::Req);
    return {
        construct(service),
        reporting(
            addListenEndpoint(service, "a wrong endpoint"),
            "[Socket Listener rep] Invalid endpoint: Failed deserializing a wrong endpoint: cannot extract transport"),
        addListenEndpoint(service, endpoint),
        start(service),
        reporting(start(service), "[Socket Listener rep] Failed starting thread: another thread is already running"),
        ask(service, "a question that is longer than a short text"),
        stop(service),
        destroyListener(service)};
}

std::vector<Step> serveOnAll() {
    const Service service = serviceOn(freshEndpoint(Transport::Tcp));
    const std::string endpoint = service.endpoint.toString(Protocol::Req);
    return {construct(service),
            refusing(service, "requireHandler", "Cannot listen without a handler",
                     [](EchoListener& listener) { listener.requireHandler(false); }),
            refusing(service, "setMessageBufferSize", "Wrong message buffer size",
                     [](EchoListener& listener) { listener.setMessageBufferSize(0); }),
            addListenEndpoint(service, endpoint),
            startOnAll(service),
            lastEndpoint(service),
            ask(service, "a question that is longer than a short text"),
            stop(service),
            destroyListener(service)};
}

/// A subscribe listener with a long address. Receives nothing.
std::vector<Step> listenTo(const socket::SocketEndpoint& endpoint) {
    const Service service = serviceOn(endpoint);
    return {construct(service), addListenEndpoint(service, service.endpoint.toString(Protocol::Req)), start(service),
            stop(service), destroyListener(service)};
}

/// Leaves a listener whose thread could not be started.
Step failToStart(const Service& service) {
    return call("start", service.party, [=] {
        const Unwatched unwatched;
        failNextThread();
        try {
            std::string error;
            (*service.listener)->start(error);
        } catch (const std::system_error&) {
            return;
        }
        throw Wrong{"the listener has a thread"};
    });
}

std::vector<Step> startAgain() {
    Service service = serviceOn(freshEndpoint(Transport::Tcp));
    service.party = party("the one who listens", Protocol::Sub);
    return {construct(service),   addListenEndpoint(service, service.endpoint.toString(Protocol::Req)),
            failToStart(service), start(service),
            stop(service),        destroyListener(service)};
}

/// Waits until `holds` returns true, or for the time `excused` if a fault was injected into the listener's thread.
template <class Condition>
void await(const Condition& holds, std::chrono::milliseconds excused) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin = Clock::now();
    while (!holds() && Clock::now() - begin < (isExcused() ? excused : std::chrono::seconds(10))) {
        awaitCall();
    }
}

/// Sends a frame that blocks the listener in its receive. Returns once it is blocked, or soon if a fault was injected.
Step sendStray(const Service& service) {
    return call("ask", nullptr, [=] {
        const Unwatched unwatched;
        const unsigned int before = receivesBegun();
        ZmqContext context;
        const ZmqHandle dealer = context.socket(ZMQ_DEALER);
        zmq_connect(dealer.get(), service.endpoint.toString(Protocol::Req).c_str());
        zmq_send(dealer.get(), "x", 1, 0);
        await([&] { return receivesBegun() != before; }, std::chrono::milliseconds(50));
        const int none = 0;
        zmq_setsockopt(dealer.get(), ZMQ_LINGER, &none, sizeof none);
    });
}

/// Stops a blocked listener. If a fault keeps `stop` from waking it, the next request does.
Step stopBlocked(const Service& service) {
    Step step = stop(service);
    step.run = [service, run = step.run] {
        std::future<void> next;
        std::promise<void> stopped; // destroyed first, which ends the wait
        next = std::async(std::launch::async, [&, end = stopped.get_future()] {
            if (end.wait_for(std::chrono::milliseconds(500)) == std::future_status::timeout) {
                const Unwatched unwatched;
                Socket client("the next", socket::ClosePolicy::DropPending);
                client.createAndConnect(Protocol::Req, service.endpoint, 0);
                Text text;
                client.sendProtoBuf(&text);
                std::string error;
                client.poll(1000, error);
            }
        });
        run();
    };
    return step;
}

std::vector<Step> stopWhileBlocked() {
    const Service service = serviceOn(freshEndpoint(Transport::Ipc));
    return {construct(service),   addListenEndpoint(service, service.endpoint.toString(Protocol::Req)),
            start(service),       sendStray(service),
            stopBlocked(service), destroyListener(service)};
}

/// Waits until the listener has reconnected and polls again, so that every run has that poll. The wait has a limit,
/// because a fault may prevent the reconnect.
Step awaitReconnection() {
    return call("ask", nullptr, [] {
        const unsigned int before = connectsBegun();
        await([before] { return connectsBegun() != before && hasPolledSinceConnect(); }, std::chrono::milliseconds(60));
    });
}

std::vector<Step> endSilence() {
    Service service = serviceOn(freshEndpoint(Transport::Tcp));
    service.party = party("the one who listens", Protocol::Sub);
    return {call("Network::setSilenceLimit", nullptr,
                 [] {
                     hurryPolls();
                     socket::Network::setSilenceLimit(1);
                 }),
            construct(service),
            addListenEndpoint(service, service.endpoint.toString(Protocol::Req)),
            start(service),
            awaitReconnection(),
            stop(service),
            destroyListener(service)};
}

std::vector<Step> wrongListener() {
    Service service = serviceOn(freshEndpoint(Transport::Tcp));
    service.party = party("the one who listens", Protocol::Pub);
    return {construct(service),
            reporting(start(service), "[Socket Listener pub] Only Sub and Rep protocols are supported"),
            destroyListener(service)};
}

} // namespace

std::vector<Scenario> listenerScenarios() {
    return {
        {"listener without messages", [] { return listenTo(freshEndpoint(Transport::Ipc)); }, false},
        {"listener on a port that the system chooses",
         [] { return listenTo({Transport::Tcp, "a host that is not looked at", 0}); }, false},
        {"listener that had no thread", startAgain, false},
        {"listener that is blocked", [] { return stopWhileBlocked(); }, false},
        {"listener of silence", [] { return endSilence(); }, false},
        {"listener of no service", wrongListener, true},
        {"listener on all endpoints", serveOnAll, false},
        {"listener", serve, false},
    };
}

} // namespace rk::tests
