#include "Commander.h"

#include <stdexcept>

namespace telemetry {

namespace {

constexpr unsigned int answerTimeoutMs = 5000;
constexpr unsigned int largestAnswer = 4096;

} // namespace

Commander::Commander(const std::string& endpoint)
    : socket("operator commands", rk::socket::ClosePolicy::LingerTwoSeconds) {
    socket.createAndConnect(rk::socket::Protocol::Req, rk::socket::SocketEndpoint::FromString(endpoint),
                            answerTimeoutMs);
}

Answer Commander::ask(Command::Action action, std::uint32_t intervalMs) {
    const std::uint64_t id = send(action, intervalMs);
    Answer answer;
    socket.receiveProtoBuf(answer, largestAnswer);
    if (answer.id() != id) {
        throw std::runtime_error("command " + std::to_string(id) + " got the answer to command " +
                                 std::to_string(answer.id()));
    }
    ++total.answered;
    if (jammed) {
        ++total.repaired;
        jammed = false;
    }
    return answer;
}

void Commander::abandon(Command::Action action) {
    send(action, 0);
    ++total.abandoned;
    jammed = true;
}

std::uint64_t Commander::send(Command::Action action, std::uint32_t intervalMs) {
    Command command;
    command.set_id(total.sent + 1);
    command.set_action(action);
    command.set_interval_ms(intervalMs);
    socket.sendProtoBuf(command);
    return ++total.sent;
}

Commander::Counts Commander::counts() const {
    return total;
}

} // namespace telemetry
