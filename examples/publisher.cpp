// Publishes a weather report ten times a second, until it is killed: publisher [ENDPOINT]

#include "weather.pb.h"

#include <rk/socket/Socket.h>

#include <chrono>
#include <exception>
#include <iostream>
#include <thread>

using namespace rk::socket;

int main(int argc, char** argv) {
    try {
        Socket publisher("publisher", ClosePolicy::DropPending);
        publisher.createAndConnect(Protocol::Pub, SocketEndpoint::FromString(argc > 1 ? argv[1] : "tcp://*:5555"), 0);

        weather::Report report;
        report.set_station("harbour");
        for (;;) {
            report.set_number(report.number() + 1);
            report.set_celsius(15 + static_cast<double>(report.number() % 100) / 10);
            publisher.sendProtoBuf(report);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
