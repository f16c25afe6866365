#include "archiver/zip_crypto.h"

#include <zlib.h>

#include <algorithm>

namespace archiver {

namespace {

std::size_t keySize(AesStrength strength)
{
    return 8 + 8 * static_cast<std::size_t>(strength);
}

// What PBKDF2 gives, in the order in which it is used.
struct Keys {
    std::array<std::byte, std::size_t{2} * 32 + WinZipAes::checkSize> bytes;
    std::size_t size;

    Keys(std::string_view password, std::span<const std::byte> salt, AesStrength strength) : size(keySize(strength))
    {
        constexpr unsigned rounds = 1000;
        platform::crypto::deriveKey(platform::crypto::Hash::sha1, password, salt, rounds,
                                    std::span(bytes).first(2 * size + WinZipAes::checkSize));
    }
    ~Keys() { platform::crypto::wipe(bytes); }
    Keys(const Keys&) = delete;
    Keys& operator=(const Keys&) = delete;

    std::span<const std::byte> encryption() const { return std::span(bytes).first(size); }
    std::span<const std::byte> authentication() const { return std::span(bytes).subspan(size, size); }
    std::span<const std::byte> check() const { return std::span(bytes).subspan(2 * size, WinZipAes::checkSize); }
};

} // namespace

std::size_t saltSize(AesStrength strength)
{
    return keySize(strength) / 2;
}

struct WinZipAes::State {
    // Small enough for the nearest cache, with the content beside it.
    static constexpr std::size_t streamSize = std::size_t{8} * 1024;

    platform::crypto::AesBlocks cipher;
    platform::crypto::Hmac hmac;
    std::array<std::byte, checkSize> check{};
    std::uint64_t counter = 1;
    std::array<std::byte, streamSize> stream{}; // the key stream, of which what lies before `used` is spent
    std::size_t used = streamSize;

    explicit State(const Keys& keys)
        : cipher(keys.encryption()), hmac(platform::crypto::Hash::sha1, keys.authentication())
    {
        std::copy(keys.check().begin(), keys.check().end(), check.begin());
    }

    // Turns the front of the content into the exclusive or of itself and key stream; returns how much of it.
    std::size_t apply(std::span<std::byte> content)
    {
        if (used == stream.size()) {
            // No more than is wanted: most files are small. The counter's upper half stays zero.
            const std::size_t wanted = (content.size() + platform::crypto::aesBlockSize - 1) /
                                       platform::crypto::aesBlockSize * platform::crypto::aesBlockSize;
            used -= std::min(wanted, streamSize);
            const std::span fresh = std::span(stream).subspan(used);
            std::fill(fresh.begin(), fresh.end(), std::byte{0});
            for (std::size_t at = 0; at < fresh.size(); at += platform::crypto::aesBlockSize, ++counter) {
                for (unsigned byte = 0; byte < sizeof counter; ++byte) {
                    fresh[at + byte] = static_cast<std::byte>(counter >> 8 * byte & 0xff);
                }
            }
            cipher.encrypt(fresh);
        }
        const std::size_t size = std::min(content.size(), stream.size() - used);
        for (std::size_t i = 0; i < size; ++i) {
            content[i] ^= stream[used + i];
        }
        used += size;
        return size;
    }
};

WinZipAes::WinZipAes(std::string_view password, std::span<const std::byte> salt, AesStrength strength)
    : state_(std::make_unique<State>(Keys(password, salt, strength)))
{
}
WinZipAes::~WinZipAes() = default;
WinZipAes::WinZipAes(WinZipAes&&) noexcept = default;

std::array<std::byte, WinZipAes::checkSize> WinZipAes::check() const
{
    return state_->check;
}

void WinZipAes::encrypt(std::span<std::byte> content)
{
    while (!content.empty()) {
        const std::size_t size = state_->apply(content);
        state_->hmac.update(content.first(size));
        content = content.subspan(size);
    }
}

void WinZipAes::decrypt(std::span<std::byte> content)
{
    state_->hmac.update(content);
    while (!content.empty()) {
        content = content.subspan(state_->apply(content));
    }
}

std::array<std::byte, WinZipAes::macSize> WinZipAes::mac()
{
    std::array<std::byte, macSize> mac;
    state_->hmac.finish(mac);
    return mac;
}

namespace {

// Its checksum is CRC-32 without the complements at either end.
std::uint32_t crcStep(std::uint32_t crc, unsigned char byte)
{
    static const z_crc_t* const table = get_crc_table();
    return (crc >> 8) ^ static_cast<std::uint32_t>(table[(crc ^ byte) & 0xff]);
}

void updateKeys(std::array<std::uint32_t, 3>& keys, unsigned char byte)
{
    keys[0] = crcStep(keys[0], byte);
    keys[1] = (keys[1] + (keys[0] & 0xff)) * 134775813 + 1;
    keys[2] = crcStep(keys[2], static_cast<unsigned char>(keys[1] >> 24));
}

} // namespace

ZipCryptoReader::ZipCryptoReader(std::string_view password) : keys_{0x12345678, 0x23456789, 0x34567890}
{
    for (const char character : password) {
        updateKeys(keys_, static_cast<unsigned char>(character));
    }
}

void ZipCryptoReader::decrypt(std::span<std::byte> content)
{
    for (std::byte& value : content) {
        const std::uint32_t mixed = (keys_[2] & 0xffff) | 2;
        const auto plain =
            static_cast<unsigned char>(std::to_integer<unsigned>(value) ^ ((mixed * (mixed ^ 1)) >> 8 & 0xff));
        updateKeys(keys_, plain);
        value = std::byte(plain);
    }
}

} // namespace archiver
