#include "archiver/zip_writer.h"

#include "archiver/failure.h"
#include "platform/unicode.h"

#include <sys/stat.h>

#include <algorithm>
#include <concepts>
#include <limits>
#include <span>
#include <string_view>

namespace archiver::zip {

namespace {

constexpr std::size_t chunkSize = std::size_t{1} << 20;

// What a reader must know of (4.4.3.2), and what the entries are made by: Unix, by version 6.3 of the format.
constexpr std::uint16_t versionPlain = 20, versionZip64 = 45, versionAes = 51;
constexpr std::uint16_t madeBy = madeByUnix << 8U | 63;

// A record of fixed length at the end of `out`, whose fields are then put in.
class Record {
public:
    Record(std::vector<std::byte>& out, std::uint32_t signature, std::size_t length) : out_(out), start_(out.size())
    {
        out.resize(start_ + length);
        put(0, signature);
    }
    template <typename T>
    void put(std::size_t offset, T value)
    {
        zip::put(std::span(out_).subspan(start_), offset, value);
    }

private:
    std::vector<std::byte>& out_;
    std::size_t start_;
};

template <std::unsigned_integral T>
void append(std::vector<std::byte>& out, T value)
{
    out.resize(out.size() + sizeof value);
    put(std::span(out).last(sizeof value), 0, value);
}

void append(std::vector<std::byte>& out, std::string_view text)
{
    zip::append(out, std::as_bytes(std::span(text)));
}

std::uint16_t flagsOf(const Entry& entry)
{
    const bool isMarked = !platform::isAscii(entry.name) && platform::isUtf8(entry.name);
    return static_cast<std::uint16_t>((isMarked ? Flag::utf8 : 0U) | (entry.isEncrypted ? Flag::encrypted : 0U));
}

std::uint16_t methodOf(const Entry& entry)
{
    return static_cast<std::uint16_t>(entry.isEncrypted ? Method::winZipAes : entry.method);
}

std::uint16_t versionOf(const Entry& entry)
{
    return entry.isEncrypted ? versionAes : entry.mayBeLarge ? versionZip64 : versionPlain;
}

std::uint32_t crcOf(const Entry& entry)
{
    return entry.isEncrypted ? 0 : entry.crc;
}

// Local time in two seconds' steps, from 1980 to 2107: date in the upper half, time in the lower (4.4.6).
std::uint32_t dosTime(std::time_t time)
{
    constexpr std::uint32_t earliest = 1U << 21U | 1U << 16U;
    constexpr std::uint32_t latest = 127U << 25U | 12U << 21U | 31U << 16U | 23U << 11U | 59U << 5U | 29U;
    struct tm local {};
    if (localtime_r(&time, &local) == nullptr) {
        return time < 0 ? earliest : latest;
    }
    constexpr int firstYear = 80; // after 1900
    if (local.tm_year < firstYear || local.tm_year > firstYear + 127) {
        return local.tm_year < firstYear ? earliest : latest;
    }
    const auto bits = [](int value, unsigned shift) { return static_cast<std::uint32_t>(value) << shift; };
    return bits(local.tm_year - firstYear, 25) | bits(local.tm_mon + 1, 21) | bits(local.tm_mday, 16) |
           bits(local.tm_hour, 11) | bits(local.tm_min, 5) | bits(std::min(local.tm_sec, 59) / 2, 0);
}

// Fields that local header and central directory have in common. The time in seconds of UTC (Info-ZIP's field UT) is a
// signed number to some readers, an unsigned one to others: it is there for what is the same to both, and 1970 for what
// was before.
void appendCommonFields(const Entry& entry, std::vector<std::byte>& out)
{
    if (entry.modified <= std::numeric_limits<std::int32_t>::max()) {
        append(out, ExtraField::extendedTime);
        append(out, std::uint16_t{5});
        append(out, std::uint8_t{1}); // the time of modification
        append(out, static_cast<std::uint32_t>(std::max<std::time_t>(entry.modified, 0)));
    }
    if (entry.isEncrypted) {
        append(out, ExtraField::winZipAes);
        append(out, std::uint16_t{7});
        append(out, std::uint16_t{2}); // AE-2
        append(out, "AE");
        append(out, static_cast<std::uint8_t>(writtenStrength));
        append(out, static_cast<std::uint16_t>(entry.method));
    }
}

// What zip64 puts in the place of a number, unless that is small enough.
std::uint32_t limited32(std::uint64_t value)
{
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(value, elsewhere32));
}
std::uint16_t limited16(std::uint64_t value)
{
    return static_cast<std::uint16_t>(std::min<std::uint64_t>(value, elsewhere16));
}

std::uint32_t attributesOf(const Entry& entry)
{
    const bool isFolder = S_ISDIR(entry.mode);
    const bool isReadOnly = S_ISREG(entry.mode) && (entry.mode & S_IWUSR) == 0;
    return static_cast<std::uint32_t>(entry.mode) << 16U | (isFolder ? dosFolder : 0) | (isReadOnly ? dosReadOnly : 0);
}

// The field zip64 of the central directory: those of the numbers that don't fit, in this order (4.5.3).
void appendZip64Field(const Entry& entry, std::vector<std::byte>& out)
{
    std::vector<std::byte> numbers;
    for (const std::uint64_t number : {entry.size, entry.compressedSize, entry.offset}) {
        if (number >= elsewhere32) {
            append(numbers, number);
        }
    }
    if (!numbers.empty()) {
        append(out, ExtraField::zip64);
        append(out, static_cast<std::uint16_t>(numbers.size()));
        zip::append(out, numbers);
    }
}

} // namespace

void appendLocalHeader(const Entry& entry, std::vector<std::byte>& out)
{
    if (entry.name.size() > std::numeric_limits<std::uint16_t>::max()) {
        fail(Exit::unusableSource, "a path is longer than a zip archive can hold");
    }
    std::vector<std::byte> extra;
    if (entry.mayBeLarge) {
        append(extra, ExtraField::zip64);
        append(extra, std::uint16_t{16});
        append(extra, entry.size);
        append(extra, entry.compressedSize);
    }
    appendCommonFields(entry, extra);

    Record header(out, LocalHeader::signature, LocalHeader::length);
    header.put(LocalHeader::version, versionOf(entry));
    header.put(LocalHeader::flags, flagsOf(entry));
    header.put(LocalHeader::method, methodOf(entry));
    header.put(LocalHeader::time, dosTime(entry.modified));
    header.put(LocalHeader::crc, crcOf(entry));
    header.put(LocalHeader::compressedSize, entry.mayBeLarge ? elsewhere32 : limited32(entry.compressedSize));
    header.put(LocalHeader::size, entry.mayBeLarge ? elsewhere32 : limited32(entry.size));
    header.put(LocalHeader::nameLength, static_cast<std::uint16_t>(entry.name.size()));
    header.put(LocalHeader::extraLength, static_cast<std::uint16_t>(extra.size()));
    append(out, entry.name);
    append(out, extra);
}

void CentralDirectory::add(const Entry& entry)
{
    std::vector<std::byte> extra;
    appendZip64Field(entry, extra);
    const bool hasZip64 = !extra.empty();
    appendCommonFields(entry, extra);

    const std::size_t length = CentralHeader::length + entry.name.size() + extra.size();
    if (chunks_.empty() || chunks_.back().size() + length > chunks_.back().capacity()) {
        chunks_.emplace_back().reserve(std::max(chunkSize, length));
    }
    std::vector<std::byte>& out = chunks_.back();
    Record header(out, CentralHeader::signature, CentralHeader::length);
    header.put(CentralHeader::madeBy, madeBy);
    header.put(CentralHeader::version, hasZip64 ? std::max(versionOf(entry), versionZip64) : versionOf(entry));
    header.put(CentralHeader::flags, flagsOf(entry));
    header.put(CentralHeader::method, methodOf(entry));
    header.put(CentralHeader::time, dosTime(entry.modified));
    header.put(CentralHeader::crc, crcOf(entry));
    header.put(CentralHeader::compressedSize, limited32(entry.compressedSize));
    header.put(CentralHeader::size, limited32(entry.size));
    header.put(CentralHeader::nameLength, static_cast<std::uint16_t>(entry.name.size()));
    header.put(CentralHeader::extraLength, static_cast<std::uint16_t>(extra.size()));
    header.put(CentralHeader::attributes, attributesOf(entry));
    header.put(CentralHeader::localHeader, limited32(entry.offset));
    append(out, entry.name);
    append(out, extra);
    ++entries_;
}

void CentralDirectory::write(ResultFile& archive) const
{
    const std::uint64_t start = archive.size();
    for (const std::vector<std::byte>& chunk : chunks_) {
        archive.write(chunk);
    }
    const std::uint64_t end = archive.size();
    std::vector<std::byte> out;
    if (entries_ >= elsewhere16 || start >= elsewhere32 || end - start >= elsewhere32) {
        Record record(out, Zip64EndRecord::signature, Zip64EndRecord::length);
        constexpr std::size_t headLength = 12; // signature and length itself
        record.put(Zip64EndRecord::recordLength, std::uint64_t{Zip64EndRecord::length - headLength});
        record.put(Zip64EndRecord::madeBy, madeBy);
        record.put(Zip64EndRecord::version, versionZip64);
        record.put(Zip64EndRecord::entriesHere, entries_);
        record.put(Zip64EndRecord::entries, entries_);
        record.put(Zip64EndRecord::directoryLength, end - start);
        record.put(Zip64EndRecord::directory, start);
        Record locator(out, Zip64Locator::signature, Zip64Locator::length);
        locator.put(Zip64Locator::endRecord, end);
        locator.put(Zip64Locator::disks, std::uint32_t{1});
    }
    Record record(out, EndRecord::signature, EndRecord::length);
    record.put(EndRecord::entriesHere, limited16(entries_));
    record.put(EndRecord::entries, limited16(entries_));
    record.put(EndRecord::directoryLength, limited32(end - start));
    record.put(EndRecord::directory, limited32(start));
    archive.write(out);
}

} // namespace archiver::zip
