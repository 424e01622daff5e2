#include "KeyFiles.h"
#include "Measuring.h"
#include "Peer.h"

#include <chrono>
#include <grpcpp/grpcpp.h>
#include <messages.grpc.pb.h>
#include <stdexcept>

namespace rk::benchmarks {

namespace {

void check(const grpc::Status& status) {
    if (!status.ok()) {
        throw std::runtime_error("gRPC: " + status.error_message());
    }
}

std::string targetOf(const End& end) {
    const std::string address = end.url.substr(end.url.find("//") + 2);
    return end.cell.transport != "ipc" ? address : "unix:" + address;
}

std::shared_ptr<grpc::ChannelCredentials> clientCredentials(const Cell& cell) {
    return cell.encrypted() ? grpc::SslCredentials({contentOf(certificateFile), "", ""})
                            : grpc::InsecureChannelCredentials();
}

std::shared_ptr<grpc::ServerCredentials> serverCredentials(const Cell& cell) {
    if (!cell.encrypted()) {
        return grpc::InsecureServerCredentials();
    }
    grpc::SslServerCredentialsOptions options;
    options.pem_key_cert_pairs.push_back({contentOf(certificateKeyFile), contentOf(certificateFile)});
    return grpc::SslServerCredentials(options);
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

/// Uses unary calls for request/reply and a server stream for publish/subscribe.
class GrpcClient final : public Client {
public:
    GrpcClient(const End& end, const Control& wire) : cell(end.cell), control(wire), payload(Payload::of(end.cell)) {
        grpc::ChannelArguments arguments;
        arguments.SetMaxReceiveMessageSize(-1);
        if (cell.encrypted()) {
            arguments.SetSslTargetNameOverride(certificateName);
        }
        channel = grpc::CreateCustomChannel(targetOf(end), clientCredentials(cell), arguments);
        stub = Exchange::NewStub(channel);
    }

    void meet() override {
        require(channel->WaitForConnected(std::chrono::system_clock::now() + std::chrono::seconds(20)), "gRPC");
        exchange(1);
    }

    void exchange(int count) override {
        if (!cell.requests()) {
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
        require(count == 0, "gRPC, whose readings are missing,");
    }

    const Cell cell;
    const Control control;
    const Payload payload;
    Reading received;
    std::shared_ptr<grpc::Channel> channel;
    std::unique_ptr<Exchange::Stub> stub;
};

void serve(const End& end, const Control& control) {
    ExchangeService service(end.cell);
    grpc::ServerBuilder builder;
    builder.SetMaxReceiveMessageSize(-1);
    builder.AddListeningPort(targetOf(end), serverCredentials(end.cell));
    builder.RegisterService(&service);
    const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    while (control.awaitOrder() != 0) {
    }
    server->Shutdown(std::chrono::system_clock::now());
}

const bool added =
    add({"gRPC", grpc::Version(), {"ipc", "tcp", "encrypted"}, serve, [](const End& end, const Control& control) {
             return std::make_unique<GrpcClient>(end, control);
         }});

} // namespace

} // namespace rk::benchmarks
