#include "archiver/zip_crypto.h"

#include "archiver/zip_format.h"

#include <zlib.h>

#include <algorithm>

namespace archiver {

namespace {

std::size_t keySize(AesStrength strength)
{
    return 8 + 8 * static_cast<std::size_t>(strength);
}

} // namespace

// What PBKDF2 gives, in the order in which it is used.
struct WinZipAes::Keys {
    std::array<std::byte, std::size_t{2} * 32 + checkSize> bytes;
    std::size_t size;

    Keys(std::string_view password, std::span<const std::byte> salt, AesStrength strength) : size(keySize(strength))
    {
        constexpr unsigned rounds = 1000;
        platform::crypto::deriveKey(platform::crypto::Hash::sha1, password, salt, rounds,
                                    std::span(bytes).first(2 * size + checkSize));
    }
    ~Keys() { platform::crypto::wipe(bytes); }
    Keys(const Keys&) = delete;
    Keys& operator=(const Keys&) = delete;

    std::span<const std::byte> encryption() const { return std::span(bytes).first(size); }
    std::span<const std::byte> authentication() const { return std::span(bytes).subspan(size, size); }
    std::span<const std::byte> check() const { return std::span(bytes).subspan(2 * size, checkSize); }
};

std::size_t saltSize(AesStrength strength)
{
    return keySize(strength) / 2;
}

WinZipAes::WinZipAes(std::string_view password, std::span<const std::byte> salt, AesStrength strength)
    : WinZipAes(Keys(password, salt, strength))
{
}

WinZipAes::WinZipAes(const Keys& keys)
    : cipher_(keys.encryption()), hmac_(platform::crypto::Hash::sha1, keys.authentication())
{
    std::copy(keys.check().begin(), keys.check().end(), check_.begin());
}

// Turns the front of the content into the exclusive or of itself and key stream; returns how much of it.
std::size_t WinZipAes::apply(std::span<std::byte> content)
{
    if (used_ == stream_.size()) {
        // No more than is wanted: most files are small. The counter's upper half stays zero.
        const std::size_t wanted = (content.size() + platform::crypto::aesBlockSize - 1) /
                                   platform::crypto::aesBlockSize * platform::crypto::aesBlockSize;
        used_ -= std::min(wanted, stream_.size());
        const std::span fresh = std::span(stream_).subspan(used_);
        std::fill(fresh.begin(), fresh.end(), std::byte{0});
        for (std::size_t at = 0; at < fresh.size(); at += platform::crypto::aesBlockSize, ++counter_) {
            zip::put(fresh, at, counter_);
        }
        cipher_.apply(fresh);
    }
    const std::size_t size = std::min(content.size(), stream_.size() - used_);
    for (std::size_t i = 0; i < size; ++i) {
        content[i] ^= stream_[used_ + i];
    }
    used_ += size;
    return size;
}

void WinZipAes::encrypt(std::span<std::byte> content)
{
    while (!content.empty()) {
        const std::size_t size = apply(content);
        hmac_.update(content.first(size));
        content = content.subspan(size);
    }
}

void WinZipAes::decrypt(std::span<std::byte> content)
{
    hmac_.update(content);
    while (!content.empty()) {
        content = content.subspan(apply(content));
    }
}

std::array<std::byte, WinZipAes::macSize> WinZipAes::mac()
{
    std::array<std::byte, macSize> mac;
    hmac_.finish(mac);
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
