#include "commands/Command.h"

namespace rk::tools {

using Creator = std::unique_ptr<Command>(CLI::App&);

Creator createPublish, createReply, createRequest, createSubscribe; // each in the file of its command

const std::vector<CommandEntry>& allCommands() {
    static const std::vector<CommandEntry> entries = {
        {"sub", "Print what is published", createSubscribe},
        {"pub", "Publish messages", createPublish},
        {"req", "Send requests and print the replies", createRequest},
        {"rep", "Print requests and answer them", createReply},
    };
    return entries;
}

} // namespace rk::tools
