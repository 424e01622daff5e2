#include "ScenarioList.h"
#include "Steps.h"
#include "support/Endpoints.h"
#include "support/messages.pb.h"

#include <rk/socket/utils/SocketListener.h>

#include <chrono>
#include <stdexcept>

namespace rk::tests {

namespace {

namespace PollResult = socket::PollResult;
namespace Protocol = socket::Protocol;
namespace Transport = socket::Transport;
using socket::Socket;

/// Sends back what it is sent, but for "fail", at which its handler throws.
class EchoListener : public socket::utils::SocketListener {
public:
    using SocketListener::SocketListener;
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

void orReported(bool succeeded, const std::string& error) {
    if (!succeeded) {
        throw Reported{error};
    }
}

Step construct(const Service& service) {
    return call("SocketListener", service.party, [=] {
        if (!*service.listener) {
            *service.listener = std::make_unique<EchoListener>(service.party->pattern, service.party->name);
        }
    });
}

Step addListenEndpoint(const Service& service, const std::string& endpoint) {
    return call("addListenEndpoint", service.party, [=] {
        std::string error;
        orReported((*service.listener)->addListenEndpoint(endpoint, error), error);
    });
}

Step start(const Service& service) {
    Step step = call("start", service.party, [=] {
        std::string error;
        orReported((*service.listener)->start(error), error);
    });
    step.debug = linesOfConnect(*service.party, service.endpoint);
    step.endpoint = service.endpoint.toString(Protocol::Undef);
    return step;
}

Step stop(const Service& service) {
    Step step = call("stop", service.party, [=] {
        std::string error;
        orReported((*service.listener)->stop(error), error);
    });
    step.endsThread = true;
    return step;
}

Step destroyListener(const Service& service) {
    return call("~SocketListener", service.party, [=] { service.listener->reset(); });
}

bool isExcused() {
    return Faults::struckOthers() || Faults::instance().listenerIsDeaf;
}

/// Whether there is a reply; when the listener's thread meets a fault, there need not be one.
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

/// A request of a client that no fault meets.
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

Service serviceOn(Transport::Transport transport) {
    return {party("the one who listens", Protocol::Rep), std::make_shared<std::unique_ptr<EchoListener>>(),
            freshEndpoint(transport)};
}

Step reporting(Step step, const std::string& text) {
    step.normal.kind = Outcome::Kind::Throws;
    step.normal.type = "result";
    step.normal.text = "[Socket Listener rep] " + text;
    step.debug.clear();
    return step;
}

std::vector<Step> serve() {
    const Service service = serviceOn(Transport::Tcp);
    const std::string endpoint = service.endpoint.toString(Protocol::Req);
    return {construct(service),
            reporting(addListenEndpoint(service, "a wrong endpoint"),
                      "Invalid endpoint: Failed deserializing a wrong endpoint: cannot extract transport"),
            addListenEndpoint(service, endpoint),
            start(service),
            reporting(start(service), "Failed starting thread: another thread is already running"),
            ask(service, "a question that is longer than a short text"),
            stop(service),
            destroyListener(service)};
}

/// Nothing is sent to it; but its endpoint has a long address.
std::vector<Step> listenTo(Transport::Transport transport) {
    const Service service = serviceOn(transport);
    return {construct(service), addListenEndpoint(service, service.endpoint.toString(Protocol::Req)), start(service),
            stop(service), destroyListener(service)};
}

std::vector<Step> wrongListener() {
    Service service = serviceOn(Transport::Tcp);
    service.party = party("the one who listens", Protocol::Pub);
    Step refused = reporting(start(service), "");
    refused.normal.text = "[Socket Listener pub] Only Sub and Rep protocols are supported";
    return {construct(service), refused, destroyListener(service)};
}

} // namespace

std::vector<Scenario> listenerScenarios() {
    return {
        {"listener without messages", [] { return listenTo(Transport::Ipc); }, false},
        {"listener of no service", wrongListener, true},
        {"listener", serve, false},
    };
}

} // namespace rk::tests
