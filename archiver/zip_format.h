// The records of a zip archive, as APPNOTE.TXT (https://pkware.cachefly.net/webdocs/casestudies/APPNOTE.TXT) lays them
// out: where their fields are, and what these hold. All numbers are little-endian.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace archiver::zip {

template <std::unsigned_integral T>
constexpr T get(std::span<const std::byte> bytes, std::size_t offset)
{
    T value = 0;
    for (std::size_t index = sizeof(T); index-- > 0;) {
        value = static_cast<T>(static_cast<std::uint64_t>(value) << 8U | std::to_integer<T>(bytes[offset + index]));
    }
    return value;
}
constexpr std::uint16_t get16(std::span<const std::byte> bytes, std::size_t offset)
{
    return get<std::uint16_t>(bytes, offset);
}
constexpr std::uint32_t get32(std::span<const std::byte> bytes, std::size_t offset)
{
    return get<std::uint32_t>(bytes, offset);
}
constexpr std::uint64_t get64(std::span<const std::byte> bytes, std::size_t offset)
{
    return get<std::uint64_t>(bytes, offset);
}

template <std::unsigned_integral T>
constexpr void put(std::span<std::byte> bytes, std::size_t offset, T value)
{
    for (std::size_t index = 0; index < sizeof(T); ++index) {
        bytes[offset + index] = static_cast<std::byte>(value >> (8U * index));
    }
}

inline void append(std::vector<std::byte>& out, std::span<const std::byte> bytes)
{
    out.insert(out.end(), bytes.begin(), bytes.end());
}

// What a field of the older records holds when the real value is in a zip64 one.
inline constexpr std::uint16_t elsewhere16 = 0xffff;
inline constexpr std::uint32_t elsewhere32 = 0xffffffff;

// Before an entry's content (4.3.7); name and extra fields follow.
struct LocalHeader {
    static constexpr std::uint32_t signature = 0x04034b50;
    static constexpr std::size_t version = 4, flags = 6, method = 8, time = 10, date = 12, crc = 14,
                                 compressedSize = 18, size = 22, nameLength = 26, extraLength = 28, length = 30;
};

// Behind it, where Flag::descriptor says so (4.3.9); the signature may be missing, the sizes may have 8 bytes.
struct DataDescriptor {
    static constexpr std::uint32_t signature = 0x08074b50;
};

// In the central directory (4.3.12); name, extra fields and comment follow.
struct CentralHeader {
    static constexpr std::uint32_t signature = 0x02014b50;
    static constexpr std::size_t madeBy = 4, version = 6, flags = 8, method = 10, time = 12, date = 14, crc = 16,
                                 compressedSize = 20, size = 24, nameLength = 28, extraLength = 30, commentLength = 32,
                                 disk = 34, internalAttributes = 36, attributes = 38, localHeader = 42, length = 46;
};

// At the end (4.3.14 to 4.3.16); a comment follows the last one.
struct Zip64EndRecord {
    static constexpr std::uint32_t signature = 0x06064b50;
    // `recordLength`: without the first 12 bytes.
    static constexpr std::size_t recordLength = 4, madeBy = 12, version = 14, disk = 16, directoryDisk = 20,
                                 entriesHere = 24, entries = 32, directoryLength = 40, directory = 48, length = 56;
};
struct Zip64Locator {
    static constexpr std::uint32_t signature = 0x07064b50;
    static constexpr std::size_t disk = 4, endRecord = 8, disks = 16, length = 20;
};
struct EndRecord {
    static constexpr std::uint32_t signature = 0x06054b50;
    static constexpr std::size_t disk = 4, directoryDisk = 6, entriesHere = 8, entries = 10, directoryLength = 12,
                                 directory = 16, commentLength = 20, length = 22;
};

// General purpose bits (4.4.4).
struct Flag {
    static constexpr std::uint16_t encrypted = 0x0001, endMarker = 0x0002 /* of LZMA */, descriptor = 0x0008,
                                   strongEncryption = 0x0040, utf8 = 0x0800, maskedHeader = 0x2000;
};

// Compression methods (4.4.5).
enum class Method : std::uint16_t {
    store = 0,
    deflate = 8,
    deflate64 = 9,
    bzip2 = 12,
    lzma = 14,
    zstandard = 93,
    xz = 95,
    winZipAes = 99, // the method proper is in the field ExtraField::winZipAes
};

// Extra fields: number and length of what follows, 2 bytes each.
struct ExtraField {
    static constexpr std::uint16_t zip64 = 0x0001, ntfs = 0x000a, extendedTime = 0x5455, olderUnixTime = 0x5855,
                                   unicodePath = 0x7075, winZipAes = 0x9901;
    static constexpr std::size_t headerLength = 4;
};

// The system that an entry was made by, in the high byte of `madeBy` (4.4.2); both keep a mode (stat(2)) in the upper
// half of `attributes`.
inline constexpr unsigned madeByUnix = 3;
inline constexpr unsigned madeByMacOs = 19;

// Attributes of MS-DOS, in the lower half.
inline constexpr std::uint32_t dosReadOnly = 0x01;
inline constexpr std::uint32_t dosFolder = 0x10;

} // namespace archiver::zip
