#include "support/Errors.h"
#include "support/KeyFiles.h"

#include <rk/socket/Security.h>

#include <gtest/gtest.h>
#include <zmq.h>

#include <cstring>
#include <string>

namespace rk::tests {

namespace {

namespace Security = socket::Security;
using Security::KeyPair;

} // namespace

TEST(Security, GeneratesPairs) {
    const KeyPair keys = Security::generateKeyPair();
    char expected[41];
    ASSERT_EQ(0, zmq_curve_public(expected, keys.secretKey.c_str()));
    EXPECT_EQ(expected, keys.publicKey);
    EXPECT_EQ(40U, keys.secretKey.size());
}

TEST(Security, GeneratesAnotherPairEachTime) {
    EXPECT_NE(Security::generateKeyPair().secretKey, Security::generateKeyPair().secretKey);
}

TEST(Security, WipesItsSecretKey) {
    alignas(KeyPair) unsigned char storage[sizeof(KeyPair)];
    auto* const keys = new (storage) KeyPair();
    keys->secretKey = "short"; // lies in the object itself
    keys->~KeyPair();
    EXPECT_EQ(nullptr, memmem(storage, sizeof storage, "short", 5));
}

} // namespace rk::tests
