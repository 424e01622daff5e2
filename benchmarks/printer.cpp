#include "messages.pb.h"

#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/type_resolver.h>
#include <google/protobuf/util/type_resolver_util.h>
#include <zmq.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

// The shortest program that does the work of the command-line tool: receives blocks and prints them unchanged, or as
// protobuf's JSON. Usage: benchmark_printer URL COUNT [--json]

namespace json = google::protobuf::util;

int main(int argc, char** argv) {
    void* const context = zmq_ctx_new();
    void* const socket = zmq_socket(context, ZMQ_SUB);
    zmq_setsockopt(socket, ZMQ_SUBSCRIBE, "", 0);
    bool good = argc > 2 && zmq_connect(socket, argv[1]) == 0;
    const unsigned long count = good ? std::strtoul(argv[2], nullptr, 10) : 0;
    const std::unique_ptr<json::TypeResolver> resolver(
        json::NewTypeResolverForDescriptorPool("type", google::protobuf::DescriptorPool::generated_pool()));
    std::array<char, 4096> buffer{};
    for (unsigned long done = 0; good && done < count; ++done) {
        const int size = zmq_recv(socket, buffer.data(), buffer.size(), 0);
        good = size >= 0;
        if (argc == 3 || !good) {
            std::fwrite(buffer.data(), 1, static_cast<std::size_t>(size), stdout);
            continue;
        }
        std::string text;
        const std::string block(buffer.data(), static_cast<std::size_t>(size));
        good = json::BinaryToJsonString(resolver.get(), "type/rk.benchmarks.Reading", block, &text).ok();
        text += '\n';
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
    std::fflush(stdout);
    zmq_close(socket);
    zmq_ctx_term(context);
    return good ? 0 : 1;
}
