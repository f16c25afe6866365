// The ciphers and hashes of both systems, by published vectors, and in pieces as at once.
#include "platform/crypto.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform::crypto {

namespace {

using Bytes = std::vector<std::byte>;

Bytes bytes(std::string_view text)
{
    const auto view = std::as_bytes(std::span(text));
    return {view.begin(), view.end()};
}

Bytes fromHex(std::string_view digits)
{
    Bytes result;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        result.push_back(static_cast<std::byte>(std::stoi(std::string(digits.substr(at, 2)), nullptr, 16)));
    }
    return result;
}

// RFC 6070, and RFC 7914, 11; a password longer than a block from RFC 3962, B.
TEST(CryptoTest, DerivesKeys)
{
    struct Case {
        Hash hash;
        std::string password, salt;
        unsigned rounds;
        std::string_view key;
    };
    const Case cases[] = {
        {Hash::sha1, "password", "salt", 1, "0c60c80f961f0e71f3a9b524af6012062fe037a6"},
        {Hash::sha1, "password", "salt", 4096, "4b007901b765489abead49d926f721d065a429c1"},
        {Hash::sha1, "passwordPASSWORDpassword", "saltSALTsaltSALTsaltSALTsaltSALTsalt", 4096,
         "3d2eec4fe41c849b80c8d83662c0e44a8b291a964cf2f07038"},
        {Hash::sha1, {"pass\0word", 9}, {"sa\0lt", 5}, 4096, "56fa6aa75548099dcc37d7f03425e0c3"},
        {Hash::sha1, std::string(65, 'X'), "pass phrase exceeds block size", 1200,
         "9ccad6d468770cd51b10e6a68721be611a8b4d282601db3b36be9246915ec82a"},
        {Hash::sha256, "passwd", "salt", 1,
         "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"
         "49ca9cccf179b645991664b39d77ef317c71b845b1e30bd509112041d3a19783"},
        {Hash::sha256, "Password", "NaCl", 80000,
         "4ddcd8f60b98be21830cee5ef22701f9641a4418d04c0414aeff08876b34ab56"
         "a1d425a1225833549adb841b51c9b3176a272bdebba1d078478f62b397f33c8d"},
    };
    for (const Case& each : cases) {
        Bytes key(each.key.size() / 2);
        deriveKey(each.hash, each.password, bytes(each.salt), each.rounds, key);
        EXPECT_EQ(key, fromHex(each.key)) << each.password;
    }
}

// RFC 2202, RFC 4231: short keys and such as are longer than a block.
TEST(CryptoTest, Authenticates)
{
    struct Case {
        Hash hash;
        Bytes key;
        std::string_view message, digest;
    };
    const Case cases[] = {
        {Hash::sha1, bytes("Jefe"), "what do ya want for nothing?", "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"},
        {Hash::sha1, Bytes(80, std::byte{0xaa}), "Test Using Larger Than Block-Size Key - Hash Key First",
         "aa4ae5e15272d00e95705637ce8a3b55ed402112"},
        {Hash::sha256, bytes("Jefe"), "what do ya want for nothing?",
         "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
        {Hash::sha256, Bytes(131, std::byte{0xaa}), "Test Using Larger Than Block-Size Key - Hash Key First",
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
    };
    for (const Case& each : cases) {
        const Bytes message = bytes(each.message);
        const Bytes digest = fromHex(each.digest);
        for (const std::size_t length : {digest.size(), std::size_t{10}}) {
            Hmac hmac(each.hash, each.key);
            hmac.update(std::span(message).first(5));
            hmac.update(std::span(message).subspan(5));
            Bytes found(length);
            hmac.finish(found);
            EXPECT_EQ(found, Bytes(digest.begin(), digest.begin() + static_cast<std::ptrdiff_t>(length)));
        }
    }
}

// FIPS 197, C; NIST SP 800-38A, F.5.5.
TEST(CryptoTest, Encrypts)
{
    Bytes key;
    for (int value = 0; value < 32; ++value) {
        key.push_back(static_cast<std::byte>(value));
    }
    for (const auto& [size, expected] :
         {std::pair<std::size_t, std::string_view>{16, "69c4e0d86a7b0430d8cdb78070b4c55a"},
          {24, "dda97ca4864cdfe06eaf70a0ec0d7191"},
          {32, "8ea2b7ca516745bfeafc49904b496089"}}) {
        Bytes blocks = fromHex("00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff");
        Aes(std::span(key).first(size)).apply(blocks);
        EXPECT_EQ(blocks, fromHex(std::string(expected).append(expected))) << size;
    }

    // Its lowest bytes overflow within the message.
    const Bytes counter = fromHex("f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff");
    Aes cipher(fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4"),
               std::span<const std::byte, aesBlockSize>(counter));
    Bytes message = fromHex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                            "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
    for (const auto& [from, length] : {std::pair<std::size_t, std::size_t>{0, 5}, {5, 30}, {35, 29}}) {
        cipher.apply(std::span(message).subspan(from, length));
    }
    EXPECT_EQ(message, fromHex("601ec313775789a5b7a7f504bbf3d228f443e3ca4d62b59aca84e990cacaf5c5"
                               "2b0930daa23de94ce87017ba2d84988ddfc9c58db67aada613c2dd08457941a6"));
}

TEST(CryptoTest, IsRandomAndCompares)
{
    Bytes first(1000);
    Bytes second(1000);
    random(first);
    random(second);
    EXPECT_NE(first, second);
    EXPECT_FALSE(std::equal(first.end() - 16, first.end(), Bytes(16).begin())) << "all of it is filled";
    EXPECT_FALSE(equalInConstantTime(first, second));
    EXPECT_FALSE(equalInConstantTime(first, std::span(first).first(999)));
    EXPECT_TRUE(equalInConstantTime(first, Bytes(first)));
}

} // namespace

} // namespace platform::crypto
