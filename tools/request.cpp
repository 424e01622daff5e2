#include "Codec.h"
#include "Command.h"
#include "Inbox.h"
#include "Numbers.h"
#include "Outgoing.h"
#include "Output.h"
#include "PrintingSink.h"
#include "RoundTrips.h"
#include "openSocket.h"

#include <cstdio>

namespace rk::tools {

namespace {

using Clock = std::chrono::steady_clock;

class Requests {
public:
    explicit Requests(const Surroundings& surroundings)
        : settings(surroundings.settings),
          complaints(surroundings.complaints),
          output(surroundings.stop),
          codec(makeCodec(settings, settings.type, settings.replyType, complaints)),
          printer(*codec, output, complaints),
          outgoing(settings, *codec, complaints, surroundings.stop),
          socket(socketName(settings), settings.closePolicy),
          inbox(socket, settings.maxSize, surroundings.stop, complaints) {
        openSocket(socket, settings);
    }

    ExitStatus run() {
        bool goOn = true;
        while (goOn) {
            auto block = outgoing.next();
            goOn = block && exchange(*block);
        }
        output.flush();
        if (settings.count) {
            report();
        }
        return sent == roundTrips.count() + unfinished ? ExitStatus::Done : ExitStatus::TimedOut;
    }

private:
    /// False when told to stop.
    bool exchange(std::string& block) {
        const auto start = Clock::now();
        socket.send(block.data(), block.size());
        ++sent;
        const auto deadline = settings.timeout ? start + *settings.timeout : Clock::time_point::max();
        auto event = inbox.wait(deadline);
        while (event == Inbox::Event::Nothing && Clock::now() < deadline) {
            printer.pause(Clock::now());
            event = inbox.wait(deadline);
        }
        if (event == Inbox::Event::Stop) {
            ++unfinished;
            return false;
        }
        if (event == Inbox::Event::Nothing) {
            complaints.add("no reply within " + described(*settings.timeout) + " on " + socket.debugString());
            return true;
        }
        take(start);
        return true;
    }

    /// A reply of several parts counts as one, and is printed as several.
    void take(Clock::time_point start) {
        const auto received = inbox.receive();
        roundTrips.add(Clock::now() - start);
        print(received);
        while (inbox.holdsMore()) {
            print(inbox.receive());
        }
        if (!settings.count) {
            output.flush();
            std::fprintf(stderr, "round trip %s ms\n", fixed(roundTrips.last(), 3).c_str());
        }
    }

    void print(const std::optional<Received>& received) {
        if (received) {
            printer.take(*received);
        }
    }

    void report() const {
        std::fprintf(stderr, "%s requests, %s replies\n", std::to_string(sent).c_str(),
                     std::to_string(roundTrips.count()).c_str());
        for (const std::string& line : roundTrips.distribution()) {
            std::fprintf(stderr, "%s\n", line.c_str());
        }
    }

    const Settings& settings;
    Complaints& complaints;
    Output output;
    std::unique_ptr<Codec> codec;
    PrintingSink printer;
    Outgoing outgoing;
    rk::socket::Socket socket;
    Inbox inbox;
    RoundTrips roundTrips;
    std::uint64_t sent = 0;
    std::uint64_t unfinished = 0;
};

} // namespace

ExitStatus request(const Surroundings& surroundings) {
    return Requests(surroundings).run();
}

} // namespace rk::tools
