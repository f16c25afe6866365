// A file is read, encrypted or decrypted, authenticated and written in one pass. The MAC stands at its end, so that
// neither direction goes back; what was decrypted gets its name only once the MAC has been compared.

#include "archiver/encrypted_file.h"

#include "archiver/failure.h"
#include "archiver/result_file.h"
#include "archiver/source_file.h"
#include "archiver/workers.h"
#include "platform/crypto.h"

#include <algorithm>
#include <cstdint>
#include <future>
#include <vector>

namespace archiver {

using platform::crypto::Aes;
using platform::crypto::equalInConstantTime;
using platform::crypto::Hash;
using platform::crypto::Hmac;

namespace {

constexpr std::string_view magic{"FOLIDEX\x02"}; // the last byte is the version
constexpr std::size_t headSize = 40;
constexpr std::size_t macSize = platform::crypto::sha256Size;
constexpr std::size_t blockSize = std::size_t{1} << 20U;

using Digest = std::array<std::byte, macSize>;

// The start of a file, up to its content.
class Head {
public:
    std::span<std::byte> bytes() { return bytes_; }
    std::span<std::byte> magic() { return std::span(bytes_).first(8); }
    std::span<std::byte> salt() { return std::span(bytes_).subspan(8, 16); }
    std::span<std::byte> check() { return std::span(bytes_).subspan(24, 8); }
    std::span<std::byte> checksum() { return std::span(bytes_).subspan(32, 8); }
    std::span<std::byte> checked() { return std::span(bytes_).first(32); }

private:
    std::array<std::byte, headSize> bytes_{};
};

std::span<const std::byte> bytesOf(std::string_view text)
{
    return std::as_bytes(std::span(text));
}

Digest keyed(std::span<const std::byte> key, std::span<const std::byte> content)
{
    Digest digest{};
    Hmac mac(Hash::sha256, key);
    mac.update(content);
    mac.finish(digest);
    return digest;
}

// Tells a head that was damaged from one that a wrong password doesn't fit. Anybody can compute it.
Digest checksumOf(Head& head)
{
    return keyed({}, head.checked());
}

// Of a digest the first bytes, as many as there is room for.
void put(std::span<const std::byte> bytes, std::span<std::byte> place)
{
    std::copy_n(bytes.begin(), place.size(), place.begin());
}
bool equals(std::span<const std::byte> place, std::span<const std::byte> bytes)
{
    return equalInConstantTime(place, bytes.first(place.size()));
}

Digest checkFor(const MasterKey& master)
{
    return keyed(master, bytesOf("password check"));
}

// The MAC of what is in a file, computed beside what the calling thread does, for it takes as long.
class Authentication {
public:
    Authentication(const MasterKey& master, Head& head, std::uint64_t size)
        : mac_(Hash::sha256, keyed(master, bytesOf("MAC key"))),
          policy_(size > blockSize && usableProcessors() > 1 ? std::launch::async : std::launch::deferred)
    {
        mac_.update(head.bytes());
    }

    // The block has to stay as it is until the next call.
    void update(std::span<const std::byte> block)
    {
        wait();
        pending_ = std::async(policy_, [this, block] { mac_.update(block); });
    }
    void wait()
    {
        if (pending_.valid()) {
            pending_.get();
        }
    }
    Digest finish()
    {
        wait();
        Digest digest{};
        mac_.finish(digest);
        return digest;
    }

private:
    Hmac mac_;
    std::launch policy_;
    std::future<void> pending_; // the last member: its end waits for the thread
};

Aes cipherOf(const MasterKey& master)
{
    // No two files have one key, so all may begin alike.
    constexpr std::array<std::byte, platform::crypto::aesBlockSize> firstCounter{};
    return {keyed(master, bytesOf("cipher key")), firstCounter};
}

// Two blocks of a file's content: one is worked on while the next is read.
class Blocks {
public:
    Blocks(const SourceFile& source, std::uint64_t begin, std::uint64_t end)
        : source_(source), at_(begin), end_(end), size_(std::min<std::uint64_t>(blockSize, end - begin)),
          buffer_(2 * size_)
    {
    }

    // Empty at the end. The one before stays as it is.
    std::span<std::byte> next()
    {
        isSecond_ = !isSecond_;
        const std::size_t size = std::min<std::uint64_t>(size_, end_ - at_);
        const std::span block = std::span(buffer_).subspan(isSecond_ ? size_ : 0, size);
        source_.read(at_, block);
        at_ += size;
        return block;
    }

private:
    const SourceFile& source_;
    std::uint64_t at_;
    std::uint64_t end_;
    std::size_t size_;
    std::vector<std::byte> buffer_;
    bool isSecond_ = true;
};

Digest encryptContent(const SourceFile& source, const MasterKey& master, Head& head, ResultFile& result)
{
    Blocks blocks(source, 0, source.size());
    Aes cipher = cipherOf(master);
    Authentication authentication(master, head, source.size());
    for (std::span<std::byte> block = blocks.next(); !block.empty(); block = blocks.next()) {
        cipher.apply(block);
        authentication.update(block);
        result.write(block);
    }
    return authentication.finish();
}

Digest decryptContent(const SourceFile& source, const MasterKey& master, Head& head, ResultFile& result)
{
    Blocks blocks(source, headSize, source.size() - macSize);
    Aes cipher = cipherOf(master);
    Authentication authentication(master, head, source.size());
    std::span<std::byte> block = blocks.next();
    authentication.update(block);
    while (!block.empty()) {
        const std::span<std::byte> following = blocks.next();
        authentication.update(following); // with the one before it is done
        cipher.apply(block);
        result.write(block);
        block = following;
    }
    return authentication.finish();
}

// The head of a file that this password opens, and its master key.
MasterKey open(const SourceFile& source, std::string_view password, const Derivation& derive, Head& head)
{
    if (source.size() < headSize + macSize) {
        fail(Exit::damaged, "no encrypted file of this kind, or cut");
    }
    source.read(0, head.bytes());
    if (!equals(head.magic(), bytesOf(magic))) {
        fail(Exit::damaged, "no encrypted file of this kind");
    }
    if (!equals(head.checksum(), checksumOf(head))) {
        fail(Exit::damaged, "the file's head is damaged");
    }
    const MasterKey master = derive(password, head.salt());
    if (!equals(head.check(), checkFor(master))) {
        fail(Exit::wrongPassword, "wrong password");
    }
    return master;
}

} // namespace

MasterKey deriveMasterKey(std::string_view password, std::span<const std::byte> salt)
{
    constexpr unsigned rounds = 600'000;
    MasterKey master{};
    platform::crypto::deriveKey(Hash::sha256, password, salt, rounds, master);
    return master;
}

void encryptFile(const Job& job, const Derivation& derive)
{
    const SourceFile source(job.sourceFolder + job.sourceName);
    ResultFile result(job.destinationFolder, job.destinationName, source.status());
    Privacy privacy;
    privacy.narrowTo(source.descriptor(), source.status());

    Head head;
    put(bytesOf(magic), head.magic());
    platform::crypto::random(head.salt());
    const MasterKey master = derive(job.password, head.salt());
    put(checkFor(master), head.check());
    put(checksumOf(head), head.checksum());

    result.write(head.bytes());
    result.write(encryptContent(source, master, head, result));
    result.publish(privacy);
}

void decryptFile(const Job& job, const Derivation& derive)
{
    const SourceFile source(job.sourceFolder + job.sourceName);
    ResultFile result(job.destinationFolder, job.destinationName, source.status());
    Privacy privacy;
    privacy.narrowTo(source.descriptor(), source.status());

    Head head;
    const MasterKey master = open(source, job.password, derive, head);
    const Digest mac = decryptContent(source, master, head, result);
    Digest claimed{};
    source.read(source.size() - macSize, claimed);
    source.requireUnchanged();
    if (!equals(claimed, mac)) {
        fail(Exit::damaged, "the file is damaged");
    }
    result.publish(privacy);
}

} // namespace archiver
