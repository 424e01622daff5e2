#include "PrintingSink.h"

#include "Codec.h"
#include "Complaints.h"
#include "Output.h"

namespace rk::tools {

PrintingSink::PrintingSink(Codec& codecToUse, Output& outputToUse, Complaints& complaintsToUse)
    : codec(codecToUse), output(outputToUse), complaints(complaintsToUse) {}

void PrintingSink::take(const Received& message) {
    try {
        output.write(codec.decode(message.bytes));
    } catch (const CodecError& error) {
        output.flush();
        complaints.add("message " + std::to_string(message.number) + ", " + std::to_string(message.bytes.size()) +
                       " bytes: " + error.what());
    }
}

void PrintingSink::pause(Clock::time_point /*now*/) {
    output.flush();
    if (output.readerGone()) {
        throw ReaderGone();
    }
}

void PrintingSink::finish(Clock::time_point /*now*/) {
    output.flush();
}

} // namespace rk::tools
