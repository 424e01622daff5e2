#include "Payload.h"
#include "Peer.h"

#include <chrono>
#include <exchange.grpc.pb.h>
#include <grpcpp/grpcpp.h>
#include <memory>
#include <mutex>
#include <stdexcept>

namespace rk::benchmarks {

namespace {

void check(const grpc::Status& status) {
    if (!status.ok()) {
        throw std::runtime_error("gRPC: " + status.error_message());
    }
}

class ExchangeService final : public Exchange::Service {
public:
    explicit ExchangeService(const Cell& cell) : payload(Payload::of(cell)) {}

    grpc::Status Echo(grpc::ServerContext*, const Reading*, Reading* reply) override {
        *reply = payload.message;
        return grpc::Status::OK;
    }

    grpc::Status Publish(grpc::ServerContext*, const Order* order, grpc::ServerWriter<Reading>* writer) override {
        for (std::uint32_t i = 0; i < order->readings(); ++i) {
            writer->Write(payload.message);
        }
        return grpc::Status::OK;
    }

private:
    const Payload payload;
};

/// Unary calls stand for requests and replies, a server's stream for publishing.
class GrpcClient final : public Client {
public:
    GrpcClient(const Cell& measured, const std::string& target, const Control& wire)
        : cell(measured), control(wire), payload(Payload::of(measured)) {
        grpc::ChannelArguments arguments;
        arguments.SetMaxReceiveMessageSize(-1);
        channel = grpc::CreateCustomChannel(target, grpc::InsecureChannelCredentials(), arguments);
        stub = Exchange::NewStub(channel);
    }

    void meet() override {
        if (!channel->WaitForConnected(std::chrono::system_clock::now() + std::chrono::seconds(20))) {
            throw std::runtime_error("gRPC: no connection");
        }
        exchange(1);
    }

    void exchange(int count) override {
        if (cell.pattern == Pattern::PublishSubscribe) {
            subscribe(count);
            return;
        }
        for (int i = 0; i < count; ++i) {
            grpc::ClientContext context;
            check(stub->Echo(&context, payload.message, &received));
        }
    }

    void end() override { control.order(0); }

private:
    void subscribe(int count) {
        grpc::ClientContext context;
        Order order;
        order.set_readings(static_cast<std::uint32_t>(count));
        const auto reader = stub->Publish(&context, order);
        while (reader->Read(&received)) {
            --count;
        }
        check(reader->Finish());
        if (count != 0) {
            throw std::runtime_error("gRPC: readings are missing");
        }
    }

    const Cell cell;
    const Control control;
    const Payload payload;
    Reading received;
    std::shared_ptr<grpc::Channel> channel;
    std::unique_ptr<Exchange::Stub> stub;
};

class GrpcPeer final : public Peer {
public:
    std::string name() const override { return "gRPC"; }
    std::string version() const override { return grpc::Version(); }
    bool offers(const Cell& cell) const override { return cell.transport != "inproc"; }

    void serve(const Cell& cell, const std::string& address, const Control& control) const override {
        ExchangeService service(cell);
        grpc::ServerBuilder builder;
        builder.SetMaxReceiveMessageSize(-1);
        builder.AddListeningPort(targetOf(cell, address), grpc::InsecureServerCredentials());
        builder.RegisterService(&service);
        const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
        while (control.awaitOrder() != 0) {
        }
        server->Shutdown(std::chrono::system_clock::now());
    }

    std::unique_ptr<Client> connect(const Cell& cell, const std::string& address,
                                    const Control& control) const override {
        return std::make_unique<GrpcClient>(cell, targetOf(cell, address), control);
    }

private:
    static std::string targetOf(const Cell& cell, const std::string& address) {
        return cell.transport == "tcp" ? "127.0.0.1:" + address : "unix:" + address;
    }
};

} // namespace

std::unique_ptr<Peer> makeGrpc() {
    return std::make_unique<GrpcPeer>();
}

} // namespace rk::benchmarks
