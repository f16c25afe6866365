#include "archiver/zip_content.h"

#include "archiver/interruption.h"
#include "platform/crypto.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <vector>

namespace archiver {

namespace {

using Cipher = ZipEntry::Cipher;

// An entry's compressed content, decrypted.
class Input {
public:
    Input(const ZipArchive& archive, const ZipEntry& entry, std::string_view password)
        : source_(archive.source()), offset_(entry.content), left_(entry.compressedSize)
    {
        if (entry.cipher == Cipher::winZipAes) {
            startAes(entry, password);
        } else if (entry.cipher == Cipher::zipCrypto) {
            startZipCrypto(entry, password);
        }
        size_ = static_cast<std::size_t>(std::min(left_, largest));
        buffer_ = std::make_unique_for_overwrite<std::byte[]>(size_);
    }

    // Whether what is stored to tell of a wrong password is right.
    bool fits() const { return fits_; }

    std::span<const std::byte> next()
    {
        throwIfInterrupted();
        const std::span piece(buffer_.get(), static_cast<std::size_t>(std::min<std::uint64_t>(left_, size_)));
        read(piece);
        if (aes_) {
            aes_->decrypt(piece);
        } else if (zipCrypto_) {
            zipCrypto_->decrypt(piece);
        }
        return piece;
    }

    // Once all has been read.
    bool isAuthentic()
    {
        if (!aes_) {
            return true;
        }
        std::array<std::byte, WinZipAes::macSize> stored{};
        source_.read(offset_, stored);
        return platform::crypto::equalInConstantTime(stored, aes_->mac());
    }

private:
    static constexpr std::uint64_t largest = std::uint64_t{256} << 10U;

    void read(std::span<std::byte> piece)
    {
        source_.read(offset_, piece);
        offset_ += piece.size();
        left_ -= piece.size();
    }

    void startAes(const ZipEntry& entry, std::string_view password)
    {
        std::vector<std::byte> salt(saltSize(entry.strength));
        std::array<std::byte, WinZipAes::checkSize> check{};
        read(salt);
        read(check);
        left_ -= WinZipAes::macSize;
        aes_.emplace(password, salt, entry.strength);
        fits_ = aes_->check() == check;
    }

    void startZipCrypto(const ZipEntry& entry, std::string_view password)
    {
        std::array<std::byte, ZipCryptoReader::headerSize> header{};
        read(header);
        zipCrypto_.emplace(password);
        zipCrypto_->decrypt(header);
        fits_ = header.back() == std::byte{entry.check};
    }

    const SourceFile& source_;
    std::uint64_t offset_;
    std::uint64_t left_;
    bool fits_ = true;
    std::size_t size_ = 0;
    std::unique_ptr<std::byte[]> buffer_;
    std::optional<WinZipAes> aes_;
    std::optional<ZipCryptoReader> zipCrypto_;
};

// Some of the encrypted ones, those that are read in no time: without content ZipCrypto's show nothing.
std::vector<const ZipEntry*> smallestEncrypted(const ZipArchive& archive)
{
    std::vector<const ZipEntry*> found;
    for (const ZipEntry& entry : archive.entries()) {
        if (entry.isEncrypted() && (entry.size > 0 || entry.cipher == Cipher::winZipAes)) {
            found.push_back(&entry);
        }
    }
    const std::size_t wanted = std::min<std::size_t>(found.size(), 16);
    std::partial_sort(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(wanted), found.end(),
                      [](const ZipEntry* left, const ZipEntry* right) { return left->size < right->size; });
    found.resize(wanted);
    return found;
}

Failure notOpened(const ZipArchive& archive, const ZipEntry& entry)
{
    return {Exit::wrongZipPassword, quoted(archive.path(entry)) + " isn't opened by the password"};
}

// readContent() of what is in `input`.
void readInput(Input& input, const ZipArchive& archive, const ZipEntry& entry, const TakePiece& take)
{
    const auto fails = [&](Exit exit, const std::string& how) { fail(exit, quoted(archive.path(entry)) + how); };
    std::uint64_t left = entry.size;
    uLong crc = crc32_z(0, nullptr, 0);
    const auto takeChecked = [&](std::span<const std::byte> piece) {
        if (piece.size() > left) {
            fails(Exit::damaged, " has more content than announced");
        }
        left -= piece.size();
        crc = crc32_z(crc, reinterpret_cast<const Bytef*>(piece.data()), piece.size());
        take(piece);
    };
    try {
        decode(
            {entry.method, entry.hasEndMarker, entry.size}, [&] { return input.next(); }, takeChecked);
    } catch (const UndecodableContent& content) {
        fails(content.exit, std::string(" has content that ") + content.what);
    }
    if (left > 0) {
        fails(Exit::damaged, " has less content than announced");
    }
    if (!input.isAuthentic() || (entry.hasCrc && crc != entry.crc)) {
        fails(Exit::damaged, " has other content than was packed");
    }
}

} // namespace

void readContent(const ZipArchive& archive, const ZipEntry& entry, std::string_view password, const TakePiece& take)
{
    Input input(archive, entry, password);
    if (!input.fits()) {
        throw notOpened(archive, entry);
    }
    readInput(input, archive, entry, take);
}

void requireCiphers(const ZipArchive& archive, std::string_view password)
{
    bool hasEncrypted = false;
    for (const ZipEntry& entry : archive.entries()) {
        if (entry.isEncrypted() && password.empty()) {
            fail(Exit::passwordNeeded, "the archive needs a password");
        }
        if (!entry.isEncrypted() && entry.size > 0 && !password.empty()) {
            fail(Exit::damaged, quoted(archive.path(entry)) + " isn't encrypted, so it may be forged");
        }
        hasEncrypted = hasEncrypted || entry.isEncrypted();
    }
    if (!hasEncrypted && !password.empty()) {
        fail(Exit::damaged, "nothing in the archive is encrypted, so it may be forged");
    }
    const std::vector<const ZipEntry*> entries = smallestEncrypted(archive);
    if (!entries.empty() && !Input(archive, *entries.front(), password).fits()) {
        failAsJudged(archive, password, notOpened(archive, *entries.front()));
    }
}

void failAsJudged(const ZipArchive& archive, std::string_view password, const Failure& failure)
{
    const bool isOpen = failure.exit() == Exit::damaged || failure.exit() == Exit::wrongZipPassword;
    if (!isOpen || password.empty()) {
        throw Failure(failure);
    }
    const std::vector<const ZipEntry*> entries = smallestEncrypted(archive);
    const auto opens = [&](const ZipEntry* entry) {
        constexpr std::uint64_t quicklyRead = std::uint64_t{4} << 20U;
        try {
            Input input(archive, *entry, password);
            if (!input.fits() && entry->compressedSize > quicklyRead) {
                return false;
            }
            readInput(input, archive, *entry, [](std::span<const std::byte>) {});
            return true;
        } catch (const Failure& other) {
            if (other.exit() == Exit::unusableSource) {
                throw;
            }
            return false;
        }
    };
    const auto isAes = [](const ZipEntry* entry) { return entry->cipher == Cipher::winZipAes; };
    const auto fitsAes = [&](const ZipEntry* entry) { return isAes(entry) && Input(archive, *entry, password).fits(); };
    if (std::any_of(entries.begin(), entries.end(), opens) ||
        2 * std::count_if(entries.begin(), entries.end(), fitsAes) >
            std::count_if(entries.begin(), entries.end(), isAes)) {
        fail(Exit::damaged, failure.cause());
    }
    fail(Exit::wrongZipPassword, "wrong password");
}

} // namespace archiver
