#include "Description.h"

#include <map>

namespace rk::tools {

const std::vector<Example>& examplesOf(const std::string& command) {
    static const std::map<std::string, std::vector<Example>> examples = {
        {"sub",
         {{"Is anything coming out of that port? Ends with status 3 if nothing does within two seconds",
           "rk-socket sub tcp://localhost:5555 --count 1 --timeout 2s"},
          {"How fast, how large, how regular? Until Ctrl-C", "rk-socket sub tcp://localhost:5555 --stats"},
          {"What does it say?",
           "rk-socket sub tcp://localhost:5555 --proto telemetry.proto --type telemetry.Reading --count 3"},
          {"One field of each message, through jq",
           "rk-socket sub tcp://localhost:5555 --proto telemetry.proto --type Reading | jq .load"},
          {"Keep the next hundred messages, with their timing",
           "rk-socket sub tcp://localhost:5555 --record readings.rec --count 100"}}},
        {"pub",
         {{"One message, to whoever waits for it", "rk-socket pub 'tcp://*:5557' 'hello'"},
          {"Each line of a program's output", "seq 1 100 | rk-socket pub 'tcp://*:5557'"},
          {"A protobuf message, ten times a second for a second",
           "rk-socket pub 'tcp://*:5557' --proto telemetry.proto --type telemetry.Reading --count 10 --interval 100ms "
           "'{\"sequence\": 1, \"load\": 0.5}'"},
          {"Four bytes", "rk-socket pub 'tcp://*:5557' --hex 'de ad be ef'"},
          {"What was recorded, ten times as fast", "rk-socket pub 'tcp://*:5557' --replay readings.rec --speed 10"}}},
        {"req",
         {{"Ask once, and see how long it takes", "rk-socket req tcp://localhost:5558 'are you there?'"},
          {"How are the round-trip times distributed?",
           "rk-socket req tcp://localhost:5558 ping --count 1000 >/dev/null"},
          {"A protobuf request",
           "rk-socket req tcp://localhost:5556 --proto telemetry.proto --type telemetry.Command --reply-type "
           "telemetry.Answer '{\"id\": 1, \"action\": \"STATUS\"}'"},
          {"Bytes from a file, the reply into another",
           "rk-socket req tcp://localhost:5558 --file request.bin --format raw >reply.bin"}}},
        {"rep",
         {{"Answer with the request, until Ctrl-C", "rk-socket rep 'tcp://*:5559' --echo"},
          {"Answer one request with a fixed text", "rk-socket rep 'tcp://*:5559' --reply 'at your service' --count 1"},
          {"Let a command answer", "rk-socket rep 'tcp://*:5559' --command 'tr a-z A-Z'"},
          {"Answer protobuf requests through jq", "rk-socket rep 'tcp://*:5559' --proto telemetry.proto --type "
                                                  "telemetry.Command --reply-type telemetry.Answer "
                                                  "--command 'jq \"{id, refusal: \\\"not now\\\"}\"'"}}}};
    return examples.at(command);
}

const std::vector<std::pair<std::string, std::string>>& exitStatuses() {
    static const std::vector<std::pair<std::string, std::string>> statuses = {
        {"0",
         "done; also when SIGINT or SIGTERM ended what has no end of its own, or the reader of the output is gone"},
        {"1", "something failed, and a line on standard error says what"},
        {"2", "the command line was not understood; nothing was done"},
        {"3", "the time of --timeout ran out"},
        {"130, 143", "SIGINT or SIGTERM came before the work was done"}};
    return statuses;
}

std::string signatureOf(const ArgumentDescription& argument) {
    std::string text;
    for (const std::string& spelling : argument.spellings) {
        text += (text.empty() ? "" : ", ") + spelling;
    }
    return argument.placeholder.empty() ? text : text + " " + argument.placeholder;
}

bool isFile(const ArgumentDescription& argument) {
    return argument.placeholder == "FILE" || argument.placeholder == "FILE...";
}

bool isFolder(const ArgumentDescription& argument) {
    return argument.placeholder == "DIR";
}

} // namespace rk::tools
