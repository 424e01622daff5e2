#include "commands/Command.h"

namespace rk::tools {

using Creator = std::unique_ptr<Command>(CLI::App&);

Creator createKeygen, createProbe, createPubkey, createPublish, createPull, createPush, createReply, createRequest,
    createSubscribe,
    createTypes; // each in the file of its command

const std::vector<CommandEntry>& allCommands() {
    static const std::vector<CommandEntry> entries = {
        {"sub", "Print published messages", createSubscribe},
        {"pub", "Publish messages", createPublish},
        {"req", "Send requests and print the replies", createRequest},
        {"rep", "Print requests and answer them", createReply},
        {"push", "Send each message to one of several receivers", createPush},
        {"pull", "Print messages of a PUSH socket", createPull},
        {"probe", "Show what listens at an endpoint (alias: check)", createProbe},
        {"types", "List the types of a schema", createTypes},
        {"keygen", "Write a key pair, and print the lines for its peers", createKeygen},
        {"pubkey", "Print the public key of a key pair", createPubkey},
    };
    return entries;
}

} // namespace rk::tools
