#include "Answer.h"
#include "Codec.h"
#include "Command.h"
#include "Inbox.h"
#include "Numbers.h"
#include "Output.h"
#include "PrintingSink.h"
#include "openSocket.h"

namespace rk::tools {

namespace {

using Clock = std::chrono::steady_clock;

class Replies {
public:
    explicit Replies(const Surroundings& surroundings)
        : settings(surroundings.settings),
          complaints(surroundings.complaints),
          output(surroundings.stop),
          codec(makeCodec(settings, settings.replyType, settings.type, complaints)),
          answer(makeAnswer(settings, *codec, complaints, surroundings.stop)),
          printer(*codec, output, complaints),
          socket(socketName(settings), settings.closePolicy),
          inbox(socket, settings.maxSize, surroundings.stop, complaints) {
        openSocket(socket, settings);
    }

    ExitStatus run() {
        std::uint64_t answered = 0;
        auto deadline = nextDeadline();
        while (!settings.count || answered < *settings.count) {
            const auto event = inbox.wait(deadline);
            if (event == Inbox::Event::Stop) {
                break;
            }
            if (event == Inbox::Event::Message) {
                serve();
                ++answered;
                deadline = nextDeadline();
            } else if (Clock::now() >= deadline) {
                complaints.add("no request within " + described(*settings.timeout) + " on " + socket.debugString());
                return ExitStatus::TimedOut;
            } else {
                printer.pause(Clock::now());
            }
        }
        return ExitStatus::Done;
    }

private:
    Clock::time_point nextDeadline() const {
        return settings.timeout ? Clock::now() + *settings.timeout : Clock::time_point::max();
    }

    /// Of a request of several parts all are printed, and the last one is answered. The reply goes out before anything
    /// can fail that has to do with printing what it answers.
    void serve() {
        auto received = inbox.receive();
        while (inbox.holdsMore()) {
            print(received);
            received = inbox.receive();
        }
        std::string block = received ? answer->to(received->bytes) : std::string();
        socket.send(block.data(), block.size());
        print(received);
        output.flush();
    }

    void print(const std::optional<Received>& received) {
        if (received) {
            printer.take(*received);
        }
    }

    const Settings& settings;
    Complaints& complaints;
    Output output;
    std::unique_ptr<Codec> codec;
    std::unique_ptr<Answer> answer;
    PrintingSink printer;
    rk::socket::Socket socket;
    Inbox inbox;
};

} // namespace

ExitStatus reply(const Surroundings& surroundings) {
    return Replies(surroundings).run();
}

} // namespace rk::tools
