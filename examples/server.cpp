// Accepts orders until its input ends: server [ENDPOINT]
//
// A client retries an order if its receipt does not arrive, so an order may arrive twice. The server remembers the
// receipt of each order and returns the same one, which makes it idempotent.

#include "orders.pb.h"

#include <rk/socket/utils/Replier.h>

#include <exception>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>

using orders::Order;
using orders::Receipt;

namespace {

class Stock {
public:
    Receipt accept(const Order& order) {
        const auto known = receipts.find(order.id());
        if (known != receipts.end()) {
            return known->second;
        }
        if (order.pieces() > pieces) {
            throw std::runtime_error("only " + std::to_string(pieces) + " left");
        }
        pieces -= order.pieces();
        Receipt receipt;
        receipt.set_id(order.id());
        receipt.set_left_in_stock(pieces);
        return receipts[order.id()] = receipt; // a real server also forgets old receipts
    }

private:
    unsigned int pieces = 100;
    std::map<std::string, Receipt> receipts;
};

} // namespace

int main(int argc, char** argv) {
    Stock stock; // outlives the replier, whose thread uses it
    rk::socket::utils::Replier<Order, Receipt> server(
        "server", [&](const Order& order, Receipt& receipt) { receipt = stock.accept(order); },
        [](const Order& order, const std::exception& failure, Receipt& receipt) {
            receipt.set_id(order.id());
            receipt.set_refusal(failure.what());
        });
    std::string error;
    if (!server.addListenEndpoint(argc > 1 ? argv[1] : "tcp://*:5556", error) || !server.start(error)) {
        std::cerr << error << '\n';
        return 1;
    }
    std::cin.get();
}
