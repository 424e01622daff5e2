// Publishes reports, and sends the last one to late joiners, until it is killed: source [FEED [SNAPSHOTS]]

#include "weather.pb.h"

#include <rk/socket/Socket.h>
#include <rk/socket/utils/Replier.h>

#include <chrono>
#include <exception>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

using namespace rk::socket;
using weather::Query;
using weather::Report;

int main(int argc, char** argv) {
    try {
        std::mutex mutex; // guards the report, which two threads use
        Report report;
        report.set_station("harbour");
        utils::Replier<Query, Report> snapshots("snapshots", [&](const Query&, Report& snapshot) {
            const std::lock_guard<std::mutex> lock(mutex);
            snapshot = report;
        });
        std::string error;
        if (!snapshots.addListenEndpoint(argc > 2 ? argv[2] : "tcp://*:5558", error) || !snapshots.start(error)) {
            throw std::runtime_error(error);
        }
        Socket feed("feed", ClosePolicy::DropPending);
        feed.createAndConnect(Protocol::Pub, SocketEndpoint::FromString(argc > 1 ? argv[1] : "tcp://*:5557"), 0);
        for (;;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            const std::lock_guard<std::mutex> lock(mutex);
            report.set_number(report.number() + 1);
            feed.sendProtoBuf(report);
        }
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
