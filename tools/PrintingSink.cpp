#include "PrintingSink.h"

#include "Codec.h"
#include "Complaints.h"
#include "Output.h"

namespace rk::tools {

PrintingSink::PrintingSink(Codec& codecToUse, Output& outputToUse, Complaints& complaintsToUse)
    : codec(codecToUse), output(outputToUse), complaints(complaintsToUse) {}

void PrintingSink::take(std::string_view block, Clock::time_point) {
    ++messages;
    try {
        output.write(codec.decode(block));
    } catch (const CodecError& error) {
        output.flush();
        complaints.add("message " + std::to_string(messages) + ", " + std::to_string(block.size()) +
                       " bytes: " + error.what());
    }
}

void PrintingSink::pause(Clock::time_point) {
    output.flush();
    if (output.readerGone()) {
        throw ReaderGone();
    }
}

void PrintingSink::finish(Clock::time_point) {
    output.flush();
}

} // namespace rk::tools
