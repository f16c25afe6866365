// By CommonCrypto (CC_crypto(3cc)), which is part of libSystem.
#define __STDC_WANT_LIB_EXT1__ 1 // memset_s(3)

#include "platform/crypto.h"

#include <CommonCrypto/CommonCrypto.h>
#include <CommonCrypto/CommonRandom.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <new>
#include <stdexcept>

namespace platform::crypto {

namespace {

void require(CCStatus status)
{
    if (status == kCCMemoryFailure) {
        throw std::bad_alloc();
    }
    if (status != kCCSuccess) {
        throw std::runtime_error("CommonCrypto failed");
    }
}

std::size_t digestSize(Hash hash)
{
    return hash == Hash::sha1 ? sha1Size : sha256Size;
}

} // namespace

void random(std::span<std::byte> bytes)
{
    require(CCRandomGenerateBytes(bytes.data(), bytes.size()));
}

struct Hmac::State {
    ~State() { wipe(std::as_writable_bytes(std::span(&context, 1))); }

    Hash hash;
    CCHmacContext context;
};

Hmac::Hmac(Hash hash, std::span<const std::byte> key) : state_(std::make_unique<State>())
{
    state_->hash = hash;
    CCHmacInit(&state_->context, hash == Hash::sha1 ? kCCHmacAlgSHA1 : kCCHmacAlgSHA256, key.data(), key.size());
}
Hmac::~Hmac() = default;
Hmac::Hmac(Hmac&&) noexcept = default;
Hmac& Hmac::operator=(Hmac&&) noexcept = default;

void Hmac::update(std::span<const std::byte> bytes)
{
    CCHmacUpdate(&state_->context, bytes.data(), bytes.size());
}

void Hmac::finish(std::span<std::byte> digest)
{
    std::array<std::byte, sha256Size> whole;
    CCHmacFinal(&state_->context, whole.data());
    if (digest.size() > digestSize(state_->hash)) {
        throw std::runtime_error("a digest is shorter");
    }
    std::copy_n(whole.begin(), digest.size(), digest.begin());
}

void deriveKey(Hash hash, std::string_view password, std::span<const std::byte> salt, unsigned rounds,
               std::span<std::byte> key)
{
    require(CCKeyDerivationPBKDF(kCCPBKDF2, password.data(), password.size(),
                                 reinterpret_cast<const std::uint8_t*>(salt.data()), salt.size(),
                                 hash == Hash::sha1 ? kCCPRFHmacAlgSHA1 : kCCPRFHmacAlgSHA256, rounds,
                                 reinterpret_cast<std::uint8_t*>(key.data()), key.size()));
}

// CommonCrypto wipes the cryptor's keys when it is released.
struct Aes::State {
    State(CCMode mode, std::span<const std::byte> key, const std::byte* firstCounter)
    {
        // The big-endian counter is the only one that it has.
        const CCModeOptions options = mode == kCCModeCTR ? kCCModeOptionCTR_BE : 0;
        require(CCCryptorCreateWithMode(kCCEncrypt, mode, kCCAlgorithmAES, ccNoPadding, firstCounter, key.data(),
                                        key.size(), nullptr, 0, 0, options, &cryptor));
    }
    ~State() { CCCryptorRelease(cryptor); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    CCCryptorRef cryptor = nullptr;
};

Aes::Aes(std::span<const std::byte> key) : state_(std::make_unique<State>(kCCModeECB, key, nullptr)) {}
Aes::Aes(std::span<const std::byte> key, std::span<const std::byte, aesBlockSize> firstCounter)
    : state_(std::make_unique<State>(kCCModeCTR, key, firstCounter.data()))
{
}
Aes::~Aes() = default;
Aes::Aes(Aes&&) noexcept = default;
Aes& Aes::operator=(Aes&&) noexcept = default;

void Aes::apply(std::span<std::byte> bytes)
{
    std::size_t written = 0;
    require(CCCryptorUpdate(state_->cryptor, bytes.data(), bytes.size(), bytes.data(), bytes.size(), &written));
}

bool equalInConstantTime(std::span<const std::byte> left, std::span<const std::byte> right)
{
    return left.size() == right.size() && timingsafe_bcmp(left.data(), right.data(), left.size()) == 0;
}

void wipe(std::span<std::byte> secret) noexcept
{
    memset_s(secret.data(), secret.size(), 0, secret.size());
}

} // namespace platform::crypto
