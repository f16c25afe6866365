// What zip archives encrypt with: WinZip's AES (AE-1 and AE-2, https://www.winzip.com/en/support/aes-encryption/) and
// the old ZipCrypto (APPNOTE.TXT 6.1).
#pragma once

#include "platform/crypto.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace archiver {

enum class AesStrength : std::uint8_t { bits128 = 1, bits192 = 2, bits256 = 3 };

// In bytes: 8, 12 or 16.
std::size_t saltSize(AesStrength strength);

// One entry's content by WinZip's AES: counter mode with a little-endian counter from 1, HMAC-SHA1 over the ciphertext.
class WinZipAes {
public:
    static constexpr std::size_t checkSize = 2;
    static constexpr std::size_t macSize = 10;

    // Derives the keys: about a millisecond. `password`: bytes as they arrive.
    WinZipAes(std::string_view password, std::span<const std::byte> salt, AesStrength strength);

    // Stored behind the salt. One wrong password in 65,536 passes it: the MAC decides.
    const std::array<std::byte, checkSize>& check() const { return check_; }

    // In place, piece by piece in order.
    void encrypt(std::span<std::byte> content);
    void decrypt(std::span<std::byte> content);

    // Of all that went through.
    std::array<std::byte, macSize> mac();

private:
    struct Keys;

    // Small enough for the nearest cache, with the content beside it.
    static constexpr std::size_t streamSize = std::size_t{8} * 1024;

    explicit WinZipAes(const Keys& keys);
    std::size_t apply(std::span<std::byte> content);

    platform::crypto::Aes cipher_;
    platform::crypto::Hmac hmac_;
    std::array<std::byte, checkSize> check_{};
    std::uint64_t counter_ = 1;
    std::array<std::byte, streamSize> stream_{}; // the key stream, of which what lies before `used_` is spent
    std::size_t used_ = streamSize;
};

// ZipCrypto is only read.
class ZipCryptoReader {
public:
    static constexpr std::size_t headerSize = 12;

    explicit ZipCryptoReader(std::string_view password);

    // In place, piece by piece in order, the header first.
    void decrypt(std::span<std::byte> content);

private:
    std::array<std::uint32_t, 3> keys_;
};

} // namespace archiver
