#include "support/Feed.h"
#include "support/Test.h"
#include "support/messages.pb.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

/// \file
/// Checks which calls of the overloaded operations compile, and which overload they select.

namespace rk::tests {

namespace {

struct Incomplete;
struct Block {
    int number;
};
struct Owner {
    std::string text;
};
struct ToPointer {
    operator void*() const { return nullptr; } // NOLINT(google-explicit-constructor)
};
struct ToMessage {
    operator google::protobuf::Message*() const { return nullptr; } // NOLINT(google-explicit-constructor)
};
enum Size : unsigned short {
    small = 2
};

template <class... Arguments>
class Sending {
    template <class S>
    static auto test(S* socket) -> decltype(socket->send(std::declval<Arguments>()...), std::true_type());
    static std::false_type test(...);

public:
    static constexpr bool compiles = decltype(test(static_cast<Socket*>(nullptr)))::value;
};

template <class... Arguments>
constexpr bool sends = Sending<Arguments...>::compiles;

// Arguments that convert to a mutable `void*` and a size.
static_assert(sends<void*, unsigned long> && sends<void*, int> && sends<void*, Size> && sends<void*, double>);
static_assert(sends<void* const&, unsigned long> && sends<char*&, std::size_t> && sends<unsigned char*, unsigned>);
static_assert(sends<std::byte*, std::size_t> && sends<int*, long> && sends<double*, short> && sends<bool*, bool>);
static_assert(sends<char (&)[4], int> && sends<int (&)[2][2], int> && sends<Block*, int> && sends<Owner*, int>);
static_assert(sends<Incomplete*, int> && sends<void**, int> && sends<const char**, int> && sends<char**, int>);
static_assert(sends<std::nullptr_t, int> && sends<ToPointer, int> && sends<Socket*, int>);

// Constant bytes.
static_assert(sends<const void*, int> && sends<const char*, int> && sends<const char (&)[4], int>);
static_assert(sends<const std::uint8_t*, std::size_t> && sends<const Block*, int> && sends<const int (&)[2], int>);
static_assert(sends<char* const*, int> && sends<const std::byte*, std::size_t>);

// Arguments that are not constant bytes.
static_assert(!sends<const Owner*, int> && !sends<const Socket*, int> && !sends<const std::string*, int>);
static_assert(!sends<volatile char*, int> && !sends<const volatile char*, int> && !sends<const volatile void*, int>);
static_assert(!sends<std::string, int> && !sends<std::string_view, int> && !sends<int, int> && !sends<void (*)(), int>);

// Strings.
static_assert(sends<const char*> && sends<const char (&)[4]> && sends<std::string> && sends<const std::string&>);
static_assert(sends<std::string&> && sends<std::string_view> && sends<char*>);

// A buffer without its size, and arguments that are not strings.
static_assert(!sends<std::nullptr_t> && !sends<char (&)[4]> && !sends<int> && !sends<void*> && !sends<Block>);
static_assert(!sends<std::vector<char>> && !sends<std::array<char, 4>> && !sends<unsigned char (&)[4]> && !sends<>);
static_assert(!sends<void*, int, int>);

/// Calls whose arguments cannot be expressed as template arguments.
[[maybe_unused]] void compileCallsOfConstants(Socket& socket, Incomplete* incomplete, Text& message) {
    socket.send(nullptr, 0);
    socket.send(NULL, 0);
    socket.send(0, 0);
    socket.send({}, 0);
    socket.send({}, {});
    socket.send(nullptr, {});
    socket.send(incomplete, sizeof incomplete);
    socket.send(&message, small);
    socket.sendProtoBuf(nullptr);
    socket.sendProtoBuf(NULL);
    socket.sendProtoBuf(0);
    socket.sendProtoBuf({});
    socket.sendProtoBuf(ToMessage());
    socket.sendProtoBuf(&message);
    socket.sendProtoBuf(message);
    socket.sendProtoBuf(static_cast<const google::protobuf::Message&>(message));
    socket.sendProtoBuf(Text());
    socket.receiveProtoBuf(nullptr, 1);
    socket.receiveProtoBuf({}, 1);
    socket.receiveProtoBuf(ToMessage(), 1);
    socket.receiveProtoBuf(&message, 1);
    socket.receiveProtoBuf(message, 1);
}

class SocketCalls : public testing::Test {
protected:
    std::string received() { return receiveText(feed.subscriber); }

    Feed feed;
    Socket& socket = feed.publisher;
};

} // namespace

TEST_F(SocketCalls, RejectNullPointers) {
    socket.send(nullptr, 0);
    EXPECT_EQ("", received());
    socket.send(std::string_view());
    EXPECT_EQ("", received());
}

TEST_F(SocketCalls, SendConstantBytes) {
    const Block block{7};
    socket.send(&block, sizeof block);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&block), sizeof block), received());
    socket.send("news", 3);
    EXPECT_EQ("new", received());
}

TEST_F(SocketCalls, SendStringsWhole) {
    socket.send("news");
    EXPECT_EQ("news", received());
    socket.send(std::string("a\0b", 3));
    EXPECT_EQ(std::string("a\0b", 3), received());
    socket.send(std::string_view("newspaper").substr(0, 4));
    EXPECT_EQ("news", received());
}

} // namespace rk::tests
