// Serves two feeds and the keyboard in one thread, until its input ends: several FEED FEED

#include "weather.pb.h"

#include <rk/socket/PollSet.h>
#include <rk/socket/Socket.h>

#include <array>
#include <chrono>
#include <exception>
#include <iostream>
#include <string>
#include <unistd.h>

using namespace rk::socket;

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: several FEED FEED\n";
        return 2;
    }
    try {
        PollSet inputs;
        std::array<Socket, 2> feeds{{{"first", ClosePolicy::DropPending}, {"second", ClosePolicy::DropPending}}};
        for (std::size_t index = 0; index < feeds.size(); ++index) {
            Socket& feed = feeds[index];
            feed.createAndConnect(Protocol::Sub, SocketEndpoint::FromString(argv[index + 1]), 0);
            inputs.add(feed, [&feed, index] {
                weather::Report report;
                feed.receiveProtoBuf(report, 1024);
                std::cout << "feed " << index + 1 << ": " << report.celsius() << " C" << std::endl;
            });
        }
        bool over = false;
        inputs.add(STDIN_FILENO, [&over] {
            char typed[100];
            const ssize_t size = read(STDIN_FILENO, typed, sizeof typed);
            over = size <= 0;
            std::cout << "typed: " << size << " bytes" << std::endl;
        });
        while (!over) {
            inputs.wait(std::chrono::milliseconds(-1));
        }
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
