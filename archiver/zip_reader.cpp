// The end record is looked for from the end backwards, through whatever was appended: the last one counts that has a
// central directory where it says. What it says may be relative to the start of the archive, in front of which anything
// may stand (self-extracting ones), or absolute; the directory's real place tells which. Large archives have a second,
// zip64 end record before it, with a locator between the two.
//
// Then the directory is read once, entry by entry, and the local header of each right with it. What an entry takes of
// the file, from its header to the end of its data descriptor, is noted: sorted, these extents show what overlaps.
// Sorted by path, with "/" before every other character, entries show what meets another.

#include "archiver/zip_reader.h"

#include "archiver/entry_path.h"
#include "archiver/failure.h"
#include "archiver/interruption.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <limits>
#include <optional>
#include <utility>

namespace archiver {

namespace {

using zip::CentralHeader;
using zip::DataDescriptor;
using zip::EndRecord;
using zip::ExtraField;
using zip::Flag;
using zip::get16;
using zip::get32;
using zip::get64;
using zip::LocalHeader;
using zip::Zip64EndRecord;
using zip::Zip64Locator;

using Bytes = std::span<const std::byte>;

// Small pieces of a file, which lie close together, by few reads.
class Window {
public:
    Window(const SourceFile& source, std::size_t size) : source_(source), size_(size) {}

    // Valid until the next call.
    Bytes at(std::uint64_t offset, std::size_t length)
    {
        if (offset > source_.size() || length > source_.size() - offset) {
            fail(Exit::damaged, "the archive is cut");
        }
        if (offset < start_ || offset + length > start_ + buffer_.size()) {
            const std::uint64_t wanted = std::max<std::uint64_t>(length, size_);
            buffer_.resize(static_cast<std::size_t>(std::min(wanted, source_.size() - offset)));
            start_ = offset;
            source_.read(offset, buffer_);
        }
        return Bytes(buffer_).subspan(static_cast<std::size_t>(offset - start_), length);
    }

private:
    const SourceFile& source_;
    std::size_t size_;
    std::uint64_t start_ = 0;
    std::vector<std::byte> buffer_;
};

struct Directory {
    std::uint64_t start = 0; // in the source, as all offsets here
    std::uint64_t length = 0;
    std::uint64_t entries = 0;
    std::uint64_t countedBits = ~std::uint64_t{0}; // of their number: the older record has room for 16
    std::uint64_t front = 0;                       // what stands before the archive, and offsets in it don't count
};

// Finds the end record, and by it the directory.
class EndFinder {
public:
    explicit EndFinder(const SourceFile& source) : source_(source), records_(source, Zip64EndRecord::length) {}

    Directory find()
    {
        constexpr std::uint64_t reach = std::uint64_t{1} << 20U;
        const std::uint64_t length = std::min(source_.size(), reach);
        std::vector<std::byte> tail(static_cast<std::size_t>(length));
        source_.read(source_.size() - length, tail);
        for (std::size_t end = tail.size(); end >= EndRecord::length; --end) {
            const std::size_t at = end - EndRecord::length;
            if (get32(tail, at) == EndRecord::signature) {
                const Bytes record = Bytes(tail).subspan(at, EndRecord::length);
                if (const std::optional<Directory> found = directoryOf(record, source_.size() - length + at)) {
                    requireEnd(source_.size() - length + at + record.size() + get16(record, EndRecord::commentLength));
                    return *found;
                }
            }
        }
        fail(Exit::damaged, "the source is no zip archive, or cut, or one part of several");
    }

private:
    bool hasSignature(std::uint64_t offset, std::uint32_t signature)
    {
        return get32(records_.at(offset, sizeof signature), 0) == signature;
    }

    // Else an archive that is stored in one that is cut is taken for it.
    void requireEnd(std::uint64_t behind)
    {
        constexpr std::uint32_t others[] = {LocalHeader::signature, DataDescriptor::signature,
                                            CentralHeader::signature};
        if (behind + sizeof others[0] <= source_.size() &&
            std::any_of(std::begin(others), std::end(others),
                        [&](auto other) { return hasSignature(behind, other); })) {
            fail(Exit::damaged, "the archive is cut, or its end is damaged");
        }
    }

    std::optional<Directory> directoryOf(Bytes record, std::uint64_t at)
    {
        Directory directory{.start = get32(record, EndRecord::directory),
                            .length = get32(record, EndRecord::directoryLength),
                            .entries = get16(record, EndRecord::entries),
                            .countedBits = zip::elsewhere16};
        std::uint32_t disk = get16(record, EndRecord::disk);
        std::uint32_t directoryDisk = get16(record, EndRecord::directoryDisk);
        std::uint64_t end = at;
        if (const std::optional<std::uint64_t> zip64 = zip64RecordBefore(at)) {
            const Bytes larger = records_.at(*zip64, Zip64EndRecord::length);
            const Directory older = std::exchange(directory, {.start = get64(larger, Zip64EndRecord::directory),
                                                              .length = get64(larger, Zip64EndRecord::directoryLength),
                                                              .entries = get64(larger, Zip64EndRecord::entries)});
            const auto agrees = [](std::uint64_t field, std::uint64_t value, std::uint64_t elsewhere) {
                return field == elsewhere || field == (value & elsewhere);
            };
            if (!agrees(older.start, directory.start, zip::elsewhere32) ||
                !agrees(older.length, directory.length, zip::elsewhere32) ||
                !agrees(older.entries, directory.entries, zip::elsewhere16) || !agrees(disk, 0, zip::elsewhere16) ||
                !agrees(directoryDisk, 0, zip::elsewhere16)) {
                return std::nullopt;
            }
            disk = get32(larger, Zip64EndRecord::disk);
            directoryDisk = get32(larger, Zip64EndRecord::directoryDisk);
            end = *zip64;
        }
        return disk == 0 && directoryDisk == 0 ? placed(directory, end) : std::nullopt;
    }

    // Where the locator says, or, as that doesn't count what stands before the archive, right before the locator.
    std::optional<std::uint64_t> zip64RecordBefore(std::uint64_t end)
    {
        constexpr std::size_t both = Zip64EndRecord::length + Zip64Locator::length;
        if (end < both || !hasSignature(end - Zip64Locator::length, Zip64Locator::signature)) {
            return std::nullopt;
        }
        const std::uint64_t locator = end - Zip64Locator::length;
        const std::uint64_t told = get64(records_.at(locator, Zip64Locator::length), Zip64Locator::endRecord);
        for (const std::uint64_t at : {told, locator - Zip64EndRecord::length}) {
            if (at <= locator - Zip64EndRecord::length && hasSignature(at, Zip64EndRecord::signature)) {
                return at;
            }
        }
        return std::nullopt;
    }

    // The directory right before its end record, or where it is said to be.
    std::optional<Directory> placed(Directory directory, std::uint64_t end)
    {
        if (directory.length > end || directory.start > end - directory.length ||
            directory.entries > directory.length / CentralHeader::length) {
            return std::nullopt;
        }
        const std::uint64_t told = directory.start;
        for (const std::uint64_t start : {end - directory.length, told}) {
            if (directory.length == 0 || hasSignature(start, CentralHeader::signature)) {
                directory.start = start;
                directory.front = start - told;
                return directory;
            }
        }
        return std::nullopt;
    }

    const SourceFile& source_;
    Window records_;
};

// Empty where there is none. What doesn't have the form of extra fields is passed over, as zipalign's padding has to
// be.
Bytes extraField(Bytes extra, std::uint16_t number)
{
    while (extra.size() >= ExtraField::headerLength) {
        const std::size_t length = get16(extra, 2);
        if (length > extra.size() - ExtraField::headerLength) {
            break;
        }
        if (get16(extra, 0) == number) {
            return extra.subspan(ExtraField::headerLength, length);
        }
        extra = extra.subspan(ExtraField::headerLength + length);
    }
    return {};
}

// Replaces each value that is in the zip64 field, which holds just these, in this order (4.5.3). Returns whether they
// are there. Without a field they are what they look like.
bool takeFromZip64(Bytes extra, std::initializer_list<std::uint64_t*> values)
{
    Bytes field = extraField(extra, ExtraField::zip64);
    if (field.empty()) {
        return true;
    }
    for (std::uint64_t* value : values) {
        if (*value == zip::elsewhere32) {
            if (field.size() < sizeof *value) {
                return false;
            }
            *value = get64(field, 0);
            field = field.subspan(sizeof *value);
        }
    }
    return true;
}

constexpr std::int64_t unitsPerSecond = 10'000'000;

std::int64_t timeOfDos(unsigned date, unsigned time)
{
    std::tm local{};
    local.tm_year = static_cast<int>(date >> 9U) + 80;
    local.tm_mon = std::max(static_cast<int>(date >> 5U & 0xfU), 1) - 1;
    local.tm_mday = std::max(static_cast<int>(date & 0x1fU), 1);
    local.tm_hour = static_cast<int>(time >> 11U);
    local.tm_min = static_cast<int>(time >> 5U & 0x3fU);
    local.tm_sec = static_cast<int>(time & 0x1fU) * 2;
    local.tm_isdst = -1;
    return static_cast<std::int64_t>(std::mktime(&local)) * unitsPerSecond;
}

// 4 bytes, signed for what is before 1970; unsigned where `dosDate` is later than signed ones reach.
std::int64_t timeOfUnix(Bytes field, std::size_t offset, unsigned dosDate)
{
    constexpr unsigned start2038 = (2038U - 1980U) << 9U;
    const std::uint32_t seconds = get32(field, offset);
    return (dosDate < start2038 ? std::int64_t{static_cast<std::int32_t>(seconds)} : seconds) * unitsPerSecond;
}

// The most exact one there is: Info-ZIP's, NTFS's and Info-ZIP's older extra fields, and what every entry has.
std::int64_t timeOf(Bytes header, Bytes extra)
{
    const unsigned dosDate = get16(header, CentralHeader::date);
    if (const Bytes field = extraField(extra, ExtraField::extendedTime);
        field.size() >= 5 && (field[0] & std::byte{1}) != std::byte{0}) {
        return timeOfUnix(field, 1, dosDate);
    }
    if (const Bytes field = extraField(extra, ExtraField::ntfs);
        field.size() >= 16 && get16(field, 4) == 1 && get16(field, 6) >= 8) {
        constexpr std::uint64_t secondsFrom1601To1970 = 11'644'473'600;
        return static_cast<std::int64_t>(get64(field, 8) - secondsFrom1601To1970 * unitsPerSecond);
    }
    if (const Bytes field = extraField(extra, ExtraField::olderUnixTime); field.size() >= 8) {
        return timeOfUnix(field, 4, dosDate);
    }
    return timeOfDos(dosDate, get16(header, CentralHeader::time));
}

// Sets kind and mode. Returns what is wrong.
const char* takeAttributes(Bytes header, bool endsInSlash, ZipEntry& entry)
{
    constexpr std::uint16_t permissions = 0777, readable = 0444, writable = 0222;
    const std::uint32_t attributes = get32(header, CentralHeader::attributes);
    const unsigned system = get16(header, CentralHeader::madeBy) >> 8U;
    const bool isUnix = system == zip::madeByUnix || system == zip::madeByMacOs;
    const auto mode = static_cast<std::uint16_t>(isUnix ? attributes >> 16U : 0);
    const unsigned type = mode & S_IFMT;
    // Info-ZIP marks what it read from its standard input as a pipe. Some archives for Java have a mode of -1.
    if (type == S_IFCHR || type == S_IFBLK || type == S_IFSOCK) {
        return "is a device or a socket";
    }
    const bool isDosFolder = !isUnix && (attributes & zip::dosFolder) != 0 && entry.size == 0;
    if (endsInSlash || type == S_IFDIR || isDosFolder) {
        entry.kind = ZipEntry::Kind::folder;
    } else if (type == S_IFLNK) {
        entry.kind = ZipEntry::Kind::link;
    }
    const bool isFolder = entry.kind == ZipEntry::Kind::folder;
    const bool isReadOnly = !isUnix && (attributes & zip::dosReadOnly) != 0;
    const std::uint16_t usual = isFolder ? permissions : isReadOnly ? readable : readable | writable;
    entry.mode = mode != 0 ? mode & permissions : usual;
    return isFolder && (entry.size != 0 || type == S_IFLNK) ? "is a folder with content" : nullptr;
}

bool beforeInPaths(std::string_view left, std::string_view right)
{
    const auto [atLeft, atRight] = std::mismatch(left.begin(), left.end(), right.begin(), right.end());
    if (atLeft == left.end() || atRight == right.end()) {
        return atRight != right.end();
    }
    const auto rank = [](char letter) { return letter == '/' ? 0 : static_cast<unsigned char>(letter) + 1; };
    return rank(*atLeft) < rank(*atRight);
}

} // namespace

std::string quoted(std::string_view path)
{
    constexpr std::size_t longest = 300;
    const auto continues = [&](std::size_t at) { return (static_cast<unsigned char>(path[at]) & 0xc0U) == 0x80; };
    std::size_t length = std::min(path.size(), longest);
    while (length < path.size() && length > 0 && continues(length)) {
        --length;
    }
    return "\"" + std::string(path.substr(0, length)) + (length < path.size() ? "…\"" : "\"");
}

// Fills an archive from its source.
class ZipArchive::Loader {
public:
    explicit Loader(ZipArchive& archive)
        : archive_(archive), directory_(EndFinder(archive.source_).find()), headers_(archive.source_, directoryWindow),
          locals_(archive.source_, localWindow)
    {
    }

    void load()
    {
        archive_.entries_.reserve(static_cast<std::size_t>(directory_.entries));
        std::uint64_t at = directory_.start;
        const std::uint64_t end = directory_.start + directory_.length;
        std::uint64_t count = 0;
        for (; at < end; ++count) {
            throwIfInterrupted();
            at += loadEntry(at, end);
        }
        if ((count & directory_.countedBits) != directory_.entries) {
            fail(Exit::damaged, "the archive has more or fewer entries than it says");
        }
        requireNoOverlap();
    }

private:
    static constexpr std::size_t directoryWindow = std::size_t{256} << 10U;
    static constexpr std::size_t localWindow = std::size_t{16} << 10U;

    // What an entry takes of the source.
    struct Extent {
        std::uint64_t start;
        std::uint64_t end;
    };

    // A header of the directory, taken apart. Valid until the next one is read.
    struct Header {
        Bytes fields;
        Bytes name;
        Bytes extra;
        std::uint16_t flags = 0;
    };

    [[noreturn]] void failEntry(const char* what) const { fail(Exit::damaged, name_ + " " + what); }

    // Returns its header's length.
    std::uint64_t loadEntry(std::uint64_t at, std::uint64_t end)
    {
        const Bytes fixed = headers_.at(at, CentralHeader::length);
        const std::size_t nameLength = get16(fixed, CentralHeader::nameLength);
        const std::size_t extraLength = get16(fixed, CentralHeader::extraLength);
        const std::size_t length =
            CentralHeader::length + nameLength + extraLength + get16(fixed, CentralHeader::commentLength);
        if (get32(fixed, 0) != CentralHeader::signature || length > end - at) {
            fail(Exit::damaged, "the archive's directory is damaged");
        }
        const Bytes whole = headers_.at(at, length);
        takeEntry({.fields = whole.first(CentralHeader::length),
                   .name = whole.subspan(CentralHeader::length, nameLength),
                   .extra = whole.subspan(CentralHeader::length + nameLength, extraLength),
                   .flags = get16(whole, CentralHeader::flags)});
        return length;
    }

    void takeEntry(const Header& header)
    {
        ZipEntry entry;
        const bool endsInSlash = takePath(header, entry);
        entry.size = get32(header.fields, CentralHeader::size);
        entry.compressedSize = get32(header.fields, CentralHeader::compressedSize);
        entry.crc = get32(header.fields, CentralHeader::crc);
        entry.hasEndMarker = (header.flags & Flag::endMarker) != 0;
        entry.modified = timeOf(header.fields, header.extra);
        std::uint64_t local = get32(header.fields, CentralHeader::localHeader);
        if (!takeFromZip64(header.extra, {&entry.size, &entry.compressedSize, &local})) {
            failEntry("has no sizes");
        }
        if (const char* wrong = takeAttributes(header.fields, endsInSlash, entry)) {
            failEntry(wrong);
        }
        takeMethod(header, entry);
        takeLocal(header, local, entry);
        if (entry.pathLength > 0) {
            archive_.entries_.push_back(entry);
        } else if (entry.kind != ZipEntry::Kind::folder) {
            failEntry("has no name");
        }
    }

    // Returns whether the name ends in a slash.
    bool takePath(const Header& header, ZipEntry& entry)
    {
        const std::string name =
            entryName({reinterpret_cast<const char*>(header.name.data()), header.name.size()},
                      (header.flags & Flag::utf8) != 0, extraField(header.extra, ExtraField::unicodePath));
        name_ = quoted(name);
        std::string& paths = archive_.paths_;
        entry.pathStart = paths.size();
        if (const char* wrong = appendPath(paths, name)) {
            failEntry(wrong);
        }
        entry.pathLength = static_cast<std::uint32_t>(paths.size() - entry.pathStart);
        return name.ends_with('/');
    }

    // Method and cipher.
    void takeMethod(const Header& header, ZipEntry& entry) const
    {
        entry.method = zip::Method{get16(header.fields, CentralHeader::method)};
        if ((header.flags & (Flag::strongEncryption | Flag::maskedHeader)) != 0) {
            fail(Exit::unsupported, name_ + " has PKWARE's strong encryption, which isn't supported");
        }
        if ((header.flags & Flag::encrypted) != 0) {
            entry.cipher = ZipEntry::Cipher::zipCrypto;
        }
        if (entry.method == zip::Method::winZipAes) {
            // Version, "AE", strength, method.
            constexpr std::size_t strengthAt = 4, methodAt = 5, length = 7;
            const Bytes field = extraField(header.extra, ExtraField::winZipAes);
            if (!entry.isEncrypted() || field.size() != length || get16(field, 0) < 1 || get16(field, 0) > 2 ||
                get16(field, 2) != 0x4541 || field[strengthAt] < std::byte{1} || field[strengthAt] > std::byte{3}) {
                failEntry("doesn't say how it is encrypted");
            }
            entry.cipher = ZipEntry::Cipher::winZipAes;
            entry.strength = AesStrength{std::to_integer<std::uint8_t>(field[strengthAt])};
            entry.hasCrc = get16(field, 0) == 1;
            entry.method = zip::Method{get16(field, methodAt)};
        }
        const std::size_t aesOverhead = saltSize(entry.strength) + WinZipAes::checkSize + WinZipAes::macSize;
        const bool isAes = entry.cipher == ZipEntry::Cipher::winZipAes;
        if (entry.isEncrypted() && entry.compressedSize < (isAes ? aesOverhead : ZipCryptoReader::headerSize)) {
            failEntry("is cut");
        }
        requireDecoder(entry.method, name_);
    }

    // Compares the local header, and notes where the content is.
    void takeLocal(const Header& header, std::uint64_t told, ZipEntry& entry)
    {
        const std::uint64_t at = told + directory_.front;
        const Bytes fixed = locals_.at(at, LocalHeader::length);
        if (at < told || get32(fixed, 0) != LocalHeader::signature) {
            failEntry("isn't where the directory says");
        }
        const std::size_t nameLength = get16(fixed, LocalHeader::nameLength);
        const std::size_t length = LocalHeader::length + nameLength + get16(fixed, LocalHeader::extraLength);
        const Bytes local = locals_.at(at, length);
        const Bytes name = local.subspan(LocalHeader::length, nameLength);
        const Bytes extra = local.subspan(LocalHeader::length + nameLength);
        constexpr std::uint16_t ciphers = Flag::encrypted | Flag::strongEncryption | Flag::maskedHeader;
        const std::uint16_t flags = get16(local, LocalHeader::flags);
        const Bytes aes = extraField(extra, ExtraField::winZipAes);
        const Bytes centralAes = extraField(header.extra, ExtraField::winZipAes);
        if (!std::equal(name.begin(), name.end(), header.name.begin(), header.name.end()) ||
            get16(local, LocalHeader::method) != get16(header.fields, CentralHeader::method) ||
            ((flags ^ header.flags) & ciphers) != 0 ||
            (entry.cipher == ZipEntry::Cipher::winZipAes &&
             !std::equal(aes.begin(), aes.end(), centralAes.begin(), centralAes.end()))) {
            failEntry("isn't what the directory says");
        }
        entry.content = at + length;
        if (entry.content > directory_.start || entry.compressedSize > directory_.start - entry.content) {
            failEntry("runs into the directory");
        }
        const bool hasDescriptor = (flags & Flag::descriptor) != 0;
        const std::uint32_t check = hasDescriptor ? get16(local, LocalHeader::time) : entry.crc >> 16U;
        entry.check = static_cast<std::uint8_t>(check >> 8U);
        const std::uint64_t end = entry.content + entry.compressedSize;
        const bool agrees = compareSizes(local, extra, hasDescriptor, entry);
        extents_.push_back({at, end + (hasDescriptor ? descriptorLength(end, agrees, entry) : 0)});
    }

    // Returns whether sizes and checksum are what the directory says. Where a descriptor follows they may be missing,
    // as zeros or ones; of what Info-ZIP encrypts while it streams they are about something else.
    bool compareSizes(Bytes local, Bytes extra, bool hasDescriptor, const ZipEntry& entry) const
    {
        const std::uint64_t crc = get32(local, LocalHeader::crc);
        std::uint64_t size = get32(local, LocalHeader::size);
        std::uint64_t compressedSize = get32(local, LocalHeader::compressedSize);
        const bool areThere = takeFromZip64(extra, {&size, &compressedSize});
        const auto mayBe = [&](std::uint64_t value, std::uint64_t told) {
            return value == told || (hasDescriptor && (entry.isEncrypted() || value == 0 || value == zip::elsewhere32));
        };
        if (!areThere || !mayBe(crc, entry.crc) || !mayBe(size, entry.size) ||
            !mayBe(compressedSize, entry.compressedSize)) {
            failEntry("has other sizes than the directory says");
        }
        return crc == entry.crc && size == entry.size && compressedSize == entry.compressedSize;
    }

    // With or without a signature, with sizes of 4 or of 8 bytes: nothing says which. Some programs announce one where
    // there is none, as the header says all.
    std::size_t descriptorLength(std::uint64_t at, bool isOptional, const ZipEntry& entry)
    {
        constexpr std::size_t word = 4;
        const auto room = static_cast<std::size_t>(std::min<std::uint64_t>(6 * word, directory_.start - at));
        const Bytes bytes = locals_.at(at, room);
        const bool isSigned = room >= word && get32(bytes, 0) == DataDescriptor::signature;
        for (const std::size_t start : {isSigned ? word : 0, std::size_t{0}}) {
            const bool hasCrc = room >= start + 3 * word && get32(bytes, start) == entry.crc;
            if (hasCrc && get32(bytes, start + word) == entry.compressedSize &&
                get32(bytes, start + 2 * word) == entry.size) {
                return start + 3 * word;
            }
            if (hasCrc && room >= start + 5 * word && get64(bytes, start + word) == entry.compressedSize &&
                get64(bytes, start + 3 * word) == entry.size) {
                return start + 5 * word;
            }
        }
        if (isSigned || !isOptional) {
            failEntry("has other sizes in its data descriptor than the directory says");
        }
        return 0;
    }

    void requireNoOverlap()
    {
        std::sort(extents_.begin(), extents_.end(),
                  [](const Extent& left, const Extent& right) { return left.start < right.start; });
        for (std::size_t index = 1; index < extents_.size(); ++index) {
            if (extents_[index].start < extents_[index - 1].end) {
                fail(Exit::damaged, "entries of the archive overlap");
            }
        }
    }

    ZipArchive& archive_;
    Directory directory_;
    Window headers_;
    Window locals_;
    std::string name_; // of the entry at work, for messages
    std::vector<Extent> extents_;
};

ZipArchive::ZipArchive(const SourceFile& source) : source_(source)
{
    Loader(*this).load();
    sortAndCompare();
}

void ZipArchive::sortAndCompare()
{
    const auto before = [this](const ZipEntry& left, const ZipEntry& right) {
        return beforeInPaths(path(left), path(right));
    };
    if (!std::is_sorted(entries_.begin(), entries_.end(), before)) {
        std::sort(entries_.begin(), entries_.end(), before);
    }
    for (std::size_t index = 1; index < entries_.size(); ++index) {
        const std::string_view above = path(entries_[index - 1]);
        const std::string_view below = path(entries_[index]);
        if (above == below) {
            fail(Exit::damaged, "two entries are called " + quoted(below));
        }
        if (entries_[index - 1].kind != ZipEntry::Kind::folder && below.starts_with(above) &&
            below[above.size()] == '/') {
            fail(Exit::damaged, quoted(below) + " lies below something that is no folder");
        }
    }
}

} // namespace archiver
