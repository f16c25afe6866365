// Ciphers and hashes by the system's own library: libcrypto on Linux, CommonCrypto on macOS.
//
// Failures of the library, which only a lack of memory explains, are thrown: std::runtime_error or std::bad_alloc. Keys
// are wiped when a value goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace platform::crypto {

// From the system's source of randomness, fit for keys and salts.
void random(std::span<std::byte> bytes);

enum class Hash { sha1, sha256 };

inline constexpr std::size_t sha1Size = 20;
inline constexpr std::size_t sha256Size = 32;

// RFC 2104.
class Hmac {
public:
    Hmac(Hash hash, std::span<const std::byte> key);
    ~Hmac();
    Hmac(Hmac&&) noexcept;
    Hmac& operator=(Hmac&&) noexcept;

    void update(std::span<const std::byte> bytes);

    // The digest of all that went through; nothing may follow. `digest`: as long as the hash's, or its first bytes.
    void finish(std::span<std::byte> digest);

private:
    struct State;
    std::unique_ptr<State> state_;
};

// PBKDF2 with HMAC (RFC 8018, 5.2) into all of `key`.
void deriveKey(Hash hash, std::string_view password, std::span<const std::byte> salt, unsigned rounds,
               std::span<std::byte> key);

inline constexpr std::size_t aesBlockSize = 16;

// AES. `key`: 16, 24 or 32 bytes.
class Aes {
public:
    // Block by block (ECB): for modes of one's own.
    explicit Aes(std::span<const std::byte> key);

    // In counter mode, the counter one big-endian number of 128 bits (NIST SP 800-38A, 6.5).
    Aes(std::span<const std::byte> key, std::span<const std::byte, aesBlockSize> firstCounter);

    ~Aes();
    Aes(Aes&&) noexcept;
    Aes& operator=(Aes&&) noexcept;

    // Encrypts in place, piece by piece in order; in counter mode decrypts, too. Block by block: whole blocks only.
    void apply(std::span<std::byte> bytes);

private:
    struct State;
    std::unique_ptr<State> state_;
};

// Whether two texts of one length are equal, in a time that doesn't tell where they differ.
bool equalInConstantTime(std::span<const std::byte> left, std::span<const std::byte> right);

// Overwrites a secret, for certain: compilers leave out what nobody reads any more.
void wipe(std::span<std::byte> secret) noexcept;

} // namespace platform::crypto
