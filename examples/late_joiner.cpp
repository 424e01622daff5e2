// Joins a feed without missing a report: late_joiner [FEED [SNAPSHOTS]], with source.cpp. Ends after twenty reports.

#include "weather.pb.h"

#include <rk/socket/Socket.h>
#include <rk/socket/utils/Requester.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <iostream>

using namespace rk::socket;
using weather::Report;

int main(int argc, char** argv) {
    try {
        // Subscribe first and receive one report, so that every report after the snapshot is in the queue.
        Socket feed("feed", ClosePolicy::DropPending);
        feed.createAndConnect(Protocol::Sub, SocketEndpoint::FromString(argc > 1 ? argv[1] : "tcp://localhost:5557"),
                              10000);
        Report report;
        feed.receiveProtoBuf(report, 1024);

        utils::Requester snapshots("snapshots",
                                   SocketEndpoint::FromString(argc > 2 ? argv[2] : "tcp://localhost:5558"));
        Report snapshot;
        snapshots.request(weather::Query(), snapshot, std::chrono::seconds(1), 3);
        std::cout << "snapshot " << snapshot.number() << std::endl;

        for (std::uint64_t number = snapshot.number(); number < snapshot.number() + 20;) {
            feed.receiveProtoBuf(report, 1024);
            if (report.number() <= number) {
                continue; // included in the snapshot
            }
            if (report.number() != number + 1) {
                std::cerr << "lost the reports before " << report.number() << ": ask for a snapshot again\n";
                return 1;
            }
            number = report.number();
            std::cout << "report " << number << std::endl;
        }
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
