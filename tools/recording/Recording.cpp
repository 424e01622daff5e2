#include "recording/Recording.h"

namespace rk::tools::recording {

namespace {

constexpr std::size_t timeSize = 8;
constexpr std::size_t lengthSize = 4;
constexpr std::uint32_t moreFlag = 0x80000000U;

void append(std::string& bytes, std::uint64_t number, std::size_t size) {
    for (std::size_t place = 0; place < size; ++place) {
        bytes += static_cast<char>((number >> (8 * place)) & 0xFFU);
    }
}

std::uint64_t read(std::string_view bytes) {
    std::uint64_t number = 0;
    for (std::size_t place = 0; place < bytes.size(); ++place) {
        number |= static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[place])) << (8 * place);
    }
    return number;
}

} // namespace

std::string toBytes(const Head& head) {
    std::string bytes;
    append(bytes, static_cast<std::uint64_t>(head.time.count()), timeSize);
    append(bytes, head.size | (head.more ? moreFlag : 0), lengthSize);
    return bytes;
}

Head headFromBytes(std::string_view bytes) {
    Head head;
    head.time = std::chrono::nanoseconds(static_cast<std::int64_t>(read(bytes.substr(0, timeSize))));
    const auto length = static_cast<std::uint32_t>(read(bytes.substr(timeSize, lengthSize)));
    head.size = length & ~moreFlag;
    head.more = (length & moreFlag) != 0;
    return head;
}

} // namespace rk::tools::recording
