// By libcrypto (OpenSSL 3).
//
// Hashes go through its low-level functions, ciphers through EVP. A key derivation is thousands of HMACs of one block
// each. As both pads are hashed once, each is two calls of the compression function, which EVP doesn't offer: its
// copies of a hash's state allocate memory, and double the time. These functions are marked as deprecated since
// OpenSSL 3.0; they are part of the library's interface (the symbols OPENSSL_3.0.0) for as long as its soname is
// libcrypto.so.3.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "platform/crypto.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <variant>

namespace platform::crypto {

namespace {

void require(bool worked)
{
    if (!worked) {
        throw std::runtime_error("libcrypto failed");
    }
}

struct Sha1 {
    using State = SHA_CTX;
    static constexpr std::size_t size = sha1Size;

    static void start(State& state) { SHA1_Init(&state); }
    static void update(State& state, const void* bytes, std::size_t length) { SHA1_Update(&state, bytes, length); }
    static void finish(State& state, unsigned char* digest) { SHA1_Final(digest, &state); }
    static void compress(State& state, const unsigned char* block) { SHA1_Transform(&state, block); }
    static std::array<SHA_LONG, 5> words(const State& state)
    {
        return {state.h0, state.h1, state.h2, state.h3, state.h4};
    }
};

struct Sha256 {
    using State = SHA256_CTX;
    static constexpr std::size_t size = sha256Size;

    static void start(State& state) { SHA256_Init(&state); }
    static void update(State& state, const void* bytes, std::size_t length) { SHA256_Update(&state, bytes, length); }
    static void finish(State& state, unsigned char* digest) { SHA256_Final(digest, &state); }
    static void compress(State& state, const unsigned char* block) { SHA256_Transform(&state, block); }
    static std::array<SHA_LONG, 8> words(const State& state) { return std::to_array(state.h); }
};

// Of both hashes.
constexpr std::size_t blockSize = SHA_CBLOCK;

// HMAC (RFC 2104): `inner` and `outer` begin with the key's pads, each a whole block.
template <typename Sha>
struct HmacState {
    typename Sha::State inner;
    typename Sha::State outer;

    explicit HmacState(std::span<const std::byte> key)
    {
        std::array<unsigned char, blockSize> pad{};
        if (key.size() > blockSize) {
            Sha::start(inner);
            Sha::update(inner, key.data(), key.size());
            Sha::finish(inner, pad.data());
        } else {
            std::transform(key.begin(), key.end(), pad.begin(),
                           [](std::byte value) { return std::to_integer<unsigned char>(value); });
        }
        begin(inner, pad, 0x36);
        begin(outer, pad, 0x5c);
        OPENSSL_cleanse(pad.data(), pad.size());
    }
    ~HmacState()
    {
        OPENSSL_cleanse(&inner, sizeof inner);
        OPENSSL_cleanse(&outer, sizeof outer);
    }
    HmacState(const HmacState&) = default;
    HmacState& operator=(const HmacState&) = default;

    void update(std::span<const std::byte> bytes) { Sha::update(inner, bytes.data(), bytes.size()); }

    std::array<unsigned char, Sha::size> finish()
    {
        std::array<unsigned char, Sha::size> digest;
        Sha::finish(inner, digest.data());
        Sha::update(outer, digest.data(), digest.size());
        Sha::finish(outer, digest.data());
        return digest;
    }

private:
    static void begin(typename Sha::State& state, std::array<unsigned char, blockSize> pad, unsigned char value)
    {
        for (unsigned char& byte : pad) {
            byte ^= value;
        }
        Sha::start(state);
        Sha::update(state, pad.data(), pad.size());
        OPENSSL_cleanse(pad.data(), pad.size());
    }
};

template <std::size_t size>
void putBigEndian(const std::array<SHA_LONG, size>& words, unsigned char* bytes)
{
    for (const SHA_LONG word : words) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            *bytes++ = static_cast<unsigned char>(word >> shift);
        }
    }
}

// One block of the key (RFC 8018, 5.2: the function F).
template <typename Sha>
auto derivedBlock(const HmacState<Sha>& keyed, std::span<const std::byte> salt, unsigned rounds, std::size_t number)
{
    const auto index = static_cast<std::uint32_t>(number);
    HmacState<Sha> first = keyed;
    first.update(salt);
    first.update(std::array{std::byte(index >> 24), std::byte(index >> 16 & 0xff), std::byte(index >> 8 & 0xff),
                            std::byte(index & 0xff)});
    auto result = first.finish();

    // A digest in a message of its own, behind a pad: the hash's end mark and the length in bits fill the block.
    constexpr std::size_t messageBits = (blockSize + Sha::size) * CHAR_BIT;
    std::array<unsigned char, blockSize> block{};
    std::copy(result.begin(), result.end(), block.begin());
    block[Sha::size] = 0x80;
    block[blockSize - 2] = messageBits >> CHAR_BIT;
    block[blockSize - 1] = messageBits & UCHAR_MAX;
    for (unsigned round = 1; round < rounds; ++round) {
        for (const auto* pad : {&keyed.inner, &keyed.outer}) {
            auto state = *pad;
            Sha::compress(state, block.data());
            putBigEndian(Sha::words(state), block.data());
        }
        for (std::size_t i = 0; i < result.size(); ++i) {
            result[i] ^= block[i];
        }
    }
    OPENSSL_cleanse(block.data(), block.size());
    return result;
}

template <typename Sha>
void deriveKeyWith(std::span<const std::byte> password, std::span<const std::byte> salt, unsigned rounds,
                   std::span<std::byte> key)
{
    const HmacState<Sha> keyed(password);
    for (std::size_t number = 1; !key.empty(); ++number) {
        auto block = derivedBlock(keyed, salt, rounds, number);
        const std::size_t length = std::min(key.size(), block.size());
        std::transform(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(length), key.begin(),
                       [](unsigned char value) { return std::byte(value); });
        OPENSSL_cleanse(block.data(), block.size());
        key = key.subspan(length);
    }
}

// Memory for libcrypto. It doesn't survive a lack of memory while it sets itself up: 3.0 crashes, later versions wait
// for themselves (pthread_once(3) within the same pthread_once). What there is none for comes from a reserve.
class Memory {
public:
    static void* allocate(std::size_t size, const char* = nullptr, int = 0)
    {
        void* block = size <= SIZE_MAX - sizeof(Header) ? std::malloc(sizeof(Header) + size) : nullptr;
        block = block != nullptr ? block : takeReserve(sizeof(Header) + size);
        return block != nullptr ? new (block) Header{size} + 1 : nullptr;
    }

    static void* reallocate(void* before, std::size_t size, const char* = nullptr, int = 0)
    {
        void* const after = allocate(size);
        if (before != nullptr && after != nullptr) {
            std::memcpy(after, before, std::min(size, headerOf(before)->size));
            release(before);
        }
        return after;
    }

    static void release(void* block, const char* = nullptr, int = 0)
    {
        if (block != nullptr && !isReserve(headerOf(block))) {
            std::free(headerOf(block));
        }
    }

private:
    struct alignas(std::max_align_t) Header {
        std::size_t size;
    };

    static Header* headerOf(void* block) { return static_cast<Header*>(block) - 1; }

    static bool isReserve(const void* block)
    {
        const auto at = reinterpret_cast<std::uintptr_t>(block);
        const auto begin = reinterpret_cast<std::uintptr_t>(reserve.data());
        return at >= begin && at < begin + reserve.size();
    }

    static void* takeReserve(std::size_t size)
    {
        if (size > reserve.size()) {
            return nullptr;
        }
        const std::size_t rounded = (size + alignof(Header) - 1) / alignof(Header) * alignof(Header);
        const std::size_t at = used.fetch_add(rounded);
        return at <= reserve.size() - rounded ? reserve.data() + at : nullptr;
    }

    alignas(Header) static inline std::array<std::byte, std::size_t{1} << 20U> reserve; // untouched, it costs nothing
    static inline std::atomic<std::size_t> used{0};
};

// Of both modes, by the sizes of keys.
struct Ciphers {
    std::array<const EVP_CIPHER*, 3> blocks;
    std::array<const EVP_CIPHER*, 3> counter;
};

// Looked up once: a look-up takes longer than the encryption of a small file. No configuration file is read.
const Ciphers& ciphers()
{
    const auto fetch = [](const char* name) {
        const EVP_CIPHER* const found = EVP_CIPHER_fetch(nullptr, name, nullptr);
        require(found != nullptr);
        return found;
    };
    static const Ciphers found = [&] {
        require(CRYPTO_set_mem_functions(&Memory::allocate, &Memory::reallocate, &Memory::release) == 1 &&
                OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr) == 1 &&
                OSSL_LIB_CTX_get0_global_default() != nullptr);
        return Ciphers{{fetch("AES-128-ECB"), fetch("AES-192-ECB"), fetch("AES-256-ECB")},
                       {fetch("AES-128-CTR"), fetch("AES-192-CTR"), fetch("AES-256-CTR")}};
    }();
    return found;
}

const unsigned char* octets(const std::byte* bytes)
{
    return reinterpret_cast<const unsigned char*>(bytes);
}

} // namespace

void random(std::span<std::byte> bytes)
{
    constexpr std::size_t most = 256; // getentropy(3)
    while (!bytes.empty()) {
        const std::span piece = bytes.first(std::min(bytes.size(), most));
        require(getentropy(piece.data(), piece.size()) == 0);
        bytes = bytes.subspan(piece.size());
    }
}

struct Hmac::State {
    std::variant<HmacState<Sha1>, HmacState<Sha256>> hash;
};

Hmac::Hmac(Hash hash, std::span<const std::byte> key)
    : state_(hash == Hash::sha1 ? std::make_unique<State>(State{HmacState<Sha1>(key)})
                                : std::make_unique<State>(State{HmacState<Sha256>(key)}))
{
}
Hmac::~Hmac() = default;
Hmac::Hmac(Hmac&&) noexcept = default;
Hmac& Hmac::operator=(Hmac&&) noexcept = default;

void Hmac::update(std::span<const std::byte> bytes)
{
    std::visit([&](auto& hash) { hash.update(bytes); }, state_->hash);
}

void Hmac::finish(std::span<std::byte> digest)
{
    std::visit(
        [&](auto& hash) {
            const auto whole = hash.finish();
            require(digest.size() <= whole.size());
            std::transform(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(digest.size()), digest.begin(),
                           [](unsigned char value) { return std::byte(value); });
        },
        state_->hash);
}

void deriveKey(Hash hash, std::string_view password, std::span<const std::byte> salt, unsigned rounds,
               std::span<std::byte> key)
{
    const auto secret = std::as_bytes(std::span(password));
    if (hash == Hash::sha1) {
        deriveKeyWith<Sha1>(secret, salt, rounds, key);
    } else {
        deriveKeyWith<Sha256>(secret, salt, rounds, key);
    }
}

// libcrypto wipes the context's keys when it is freed.
struct Aes::State {
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context{EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free};

    State(const std::array<const EVP_CIPHER*, 3>& ciphers, std::span<const std::byte> key,
          const std::byte* firstCounter)
    {
        const EVP_CIPHER* const cipher = ciphers.at(key.size() / 8 - 2);
        require(context && key.size() == static_cast<std::size_t>(EVP_CIPHER_get_key_length(cipher)) &&
                EVP_EncryptInit_ex2(context.get(), cipher, octets(key.data()), octets(firstCounter), nullptr) == 1 &&
                EVP_CIPHER_CTX_set_padding(context.get(), 0) == 1);
    }
};

Aes::Aes(std::span<const std::byte> key) : state_(std::make_unique<State>(ciphers().blocks, key, nullptr)) {}
Aes::Aes(std::span<const std::byte> key, std::span<const std::byte, aesBlockSize> firstCounter)
    : state_(std::make_unique<State>(ciphers().counter, key, firstCounter.data()))
{
}
Aes::~Aes() = default;
Aes::Aes(Aes&&) noexcept = default;
Aes& Aes::operator=(Aes&&) noexcept = default;

void Aes::apply(std::span<std::byte> bytes)
{
    constexpr std::size_t most = 1 << 30; // of what an int counts, whole blocks
    while (!bytes.empty()) {
        const std::span piece = bytes.first(std::min(bytes.size(), most));
        auto* const octets = reinterpret_cast<unsigned char*>(piece.data());
        const int size = static_cast<int>(piece.size());
        int written = 0;
        require(EVP_EncryptUpdate(state_->context.get(), octets, &written, octets, size) == 1 && written == size);
        bytes = bytes.subspan(piece.size());
    }
}

bool equalInConstantTime(std::span<const std::byte> left, std::span<const std::byte> right)
{
    return left.size() == right.size() && CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

void wipe(std::span<std::byte> secret) noexcept
{
    OPENSSL_cleanse(secret.data(), secret.size());
}

} // namespace platform::crypto
