// One thread walks the tree, opens and reads; all compress and encrypt; the first writes what comes of it, in the order
// of the walk (ordered_work.h). A task is either a batch of small items, whole entries with their headers, or one block
// of a larger file. Such a file's header is written ahead of its first block, and once more when its sizes are known.
//
// Of each folder first all names are read, then its items are packed, sorted by name: the same tree gives the same
// bytes.
#include "archiver/packing.h"

#include "archiver/block_deflate.h"
#include "archiver/entry_path.h"
#include "archiver/failure.h"
#include "archiver/interruption.h"
#include "archiver/leftovers.h"
#include "archiver/ordered_work.h"
#include "archiver/result_file.h"
#include "archiver/source_file.h"
#include "archiver/zip_writer.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/identity.h"
#include "platform/posix/tree_walk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace archiver {

namespace {

using platform::posix::Descriptor;
using platform::posix::Failure;
using platform::posix::Identity;
using platform::posix::retried;
using platform::posix::TreeEntry;
using zip::append;
using zip::Entry;
using zip::Method;

// Of a file larger than that, and the most content of a batch.
constexpr std::size_t blockSize = std::size_t{512} * 1024;

// Few enough for a batch not to take long where each has a key to be derived.
constexpr std::size_t mostOfBatch = 64;

// A file of this size may need zip64, as content that can't be compressed grows by less than a thousandth.
constexpr std::uint64_t zip64From = (std::uint64_t{1} << 32U) - (std::uint64_t{1} << 24U);

std::uint32_t crcOf(std::span<const std::byte> bytes)
{
    return static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

// ---- One entry's encryption -----------------------------------------------------------------------------------------

class Encryption {
public:
    static constexpr std::size_t saltLength = 16;
    static constexpr std::size_t overhead = saltLength + WinZipAes::checkSize + WinZipAes::macSize;

    explicit Encryption(std::string_view password) : cipher_(password, salt_, zip::writtenStrength) {}

    void appendStart(std::vector<std::byte>& out) const
    {
        append(out, salt_);
        append(out, cipher_.check());
    }
    void encrypt(std::span<std::byte> content) { cipher_.encrypt(content); }
    void appendEnd(std::vector<std::byte>& out) { append(out, cipher_.mac()); }

private:
    using Salt = std::array<std::byte, saltLength>;

    static Salt freshSalt()
    {
        Salt salt;
        platform::crypto::random(salt);
        return salt;
    }

    Salt salt_ = freshSalt(); // before the cipher
    WinZipAes cipher_;
};

// ---- What is done on all processors ---------------------------------------------------------------------------------

// A block of a larger file.
struct Block {
    Method method = Method::store;
    std::size_t before = 0; // bytes of the input that precede it, for reference only
    bool isFirst = false;
    bool isLast = false;
    std::uint32_t crc = 0;
};

struct PackTask {
    std::string_view password;
    std::vector<Entry> entries;   // of a batch; of a file's first block that file's
    std::optional<Block> block;   // none: a batch
    std::vector<std::byte> input; // contents, one behind the other
    std::size_t filled = 0;
    std::vector<std::byte> output; // what goes into the archive; offsets of entries begin here

    void work()
    {
        if (block) {
            deflateBlock();
            return;
        }
        std::span<const std::byte> rest = input;
        for (Entry& entry : entries) {
            throwIfInterrupted();
            const auto size = static_cast<std::size_t>(entry.size);
            packWhole(entry, rest.first(size));
            rest = rest.subspan(size);
        }
    }

    void reset()
    {
        entries.clear();
        block.reset();
        filled = 0;
        output.clear();
        input.resize(deflateWindow + blockSize);
    }

private:
    void deflateBlock()
    {
        const std::span<const std::byte> before = std::span(input).first(block->before);
        const std::span<const std::byte> content = std::span(input).first(filled).subspan(block->before);
        block->crc = crcOf(content);
        if (block->method == Method::deflate) {
            deflater_.deflate(before, content, block->isLast, output);
        } else {
            append(output, content);
        }
    }

    void packWhole(Entry& entry, std::span<const std::byte> content)
    {
        compressed_.clear();
        if (S_ISREG(entry.mode)) {
            deflater_.deflate({}, content, true, compressed_);
        }
        const bool shrinks = S_ISREG(entry.mode) && compressed_.size() < content.size();
        const std::span<const std::byte> stored = shrinks ? std::span<const std::byte>(compressed_) : content;
        entry.method = shrinks ? Method::deflate : Method::store;
        entry.crc = crcOf(content);
        entry.compressedSize = stored.size() + (entry.isEncrypted ? Encryption::overhead : 0);
        entry.offset = output.size();
        appendLocalHeader(entry, output);
        if (!entry.isEncrypted) {
            append(output, stored);
            return;
        }
        Encryption encryption(password);
        encryption.appendStart(output);
        append(output, stored);
        encryption.encrypt(std::span(output).last(stored.size()));
        encryption.appendEnd(output);
    }

    BlockDeflater deflater_;
    std::vector<std::byte> compressed_;
};

// ---- What one thread does -------------------------------------------------------------------------------------------

// Writes entries into the archive.
class ArchiveWriter {
public:
    ArchiveWriter(ResultFile& archive, std::string_view password) : archive_(archive), password_(password) {}

    void write(PackTask& task)
    {
        if (task.block) {
            writeBlock(task);
            return;
        }
        for (Entry& entry : task.entries) {
            entry.offset += archive_.size();
            directory_.add(entry);
        }
        archive_.write(task.output);
    }

    void finish() { directory_.write(archive_); }

private:
    void writeBlock(PackTask& task)
    {
        const Block& block = *task.block;
        buffer_.clear();
        if (block.isFirst) {
            large_ = task.entries.front();
            large_.offset = archive_.size();
            appendLocalHeader(large_, buffer_);
            if (large_.isEncrypted) {
                encryption_.emplace(password_).appendStart(buffer_);
            }
            archive_.write(buffer_);
        }
        if (encryption_) {
            encryption_->encrypt(task.output);
        }
        const std::size_t contentSize = task.filled - block.before;
        large_.crc =
            static_cast<std::uint32_t>(crc32_combine(large_.crc, block.crc, static_cast<z_off_t>(contentSize)));
        large_.size += contentSize;
        large_.compressedSize += task.output.size();
        if (block.isLast && encryption_) {
            encryption_->appendEnd(task.output);
            encryption_.reset();
            large_.compressedSize += Encryption::overhead;
        }
        archive_.write(task.output);
        if (block.isLast) {
            buffer_.clear();
            appendLocalHeader(large_, buffer_);
            archive_.writeAt(large_.offset, buffer_);
            directory_.add(large_);
        }
    }

    ResultFile& archive_;
    std::string_view password_;
    zip::CentralDirectory directory_;
    Entry large_; // the one whose blocks come
    std::optional<Encryption> encryption_;
    std::vector<std::byte> buffer_;
};

[[noreturn]] void failSource(const std::string& name, const char* why)
{
    fail(Exit::unusableSource, name + ": " + why);
}

// Reads until the buffer is full or the file ends.
std::size_t readUpTo(int file, std::span<std::byte> buffer, const std::string& name)
{
    std::size_t filled = 0;
    while (filled < buffer.size()) {
        const auto count = retried([&] { return read(file, buffer.data() + filled, buffer.size() - filled); });
        if (count < 0) {
            failSource(name, std::strerror(errno));
        }
        if (count == 0) {
            break;
        }
        filled += static_cast<std::size_t>(count);
    }
    return filled;
}

// Some of a large file, from all over it.
std::vector<std::byte> sampleOf(int file, std::uint64_t size)
{
    constexpr std::size_t pieces = 16;
    constexpr std::size_t length = 4096;
    std::vector<std::byte> sample(pieces * length);
    std::size_t filled = 0;
    for (std::size_t piece = 0; piece < pieces; ++piece) {
        const auto from = static_cast<off_t>(size / pieces * piece);
        const auto count = retried([&] { return pread(file, sample.data() + filled, length, from); });
        filled += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    sample.resize(filled);
    return sample;
}

class Packing : public platform::posix::TreeVisitor {
public:
    Packing(const Job& job, ResultFile& archive)
        : job_(job), archive_(archive), writer_(archive, job.password), place_(identityOf(archive.folder()))
    {
    }

    // The file itself, or what is in the folder.
    void addFile(int file, const struct stat& status, std::string name)
    {
        privacy_.narrowTo(file, status);
        Entry entry = entryOf(std::move(name), status);
        const auto size = static_cast<std::uint64_t>(status.st_size);
        if (size > blockSize) {
            addLarge(file, size, std::move(entry));
            return;
        }
        PackTask& batch = batchFor(size);
        // Some files have content, but no size, such as those of /proc.
        const std::size_t most = size == 0 ? batch.input.size() - batch.filled : static_cast<std::size_t>(size);
        entry.size = readUpTo(file, std::span(batch.input).subspan(batch.filled, most), entry.name);
        if (size == 0 && entry.size == most) {
            failSource(entry.name, "it has more content than its size tells");
        }
        batch.filled += static_cast<std::size_t>(entry.size);
        batch.entries.push_back(std::move(entry));
    }

    Failure visit(const TreeEntry& item) override
    {
        if (isWorkName(item.name) || (isArchivesPlace_ && job_.destinationName == item.name)) {
            return {};
        }
        if (item.type == DT_LNK) {
            return addLink(item);
        }
        if (item.type != DT_REG) {
            failSource(nameOf(item), "a pipe, socket or device can't be packed");
        }
        struct stat status {};
        const Descriptor file = openForReading(item.folder, item.name, O_NOFOLLOW);
        if (!file || fstat(file.get(), &status) != 0) {
            return failed(item, errno);
        }
        if (!S_ISREG(status.st_mode)) {
            failSource(nameOf(item), "it is no file any more");
        }
        addFile(file.get(), status, nameOf(item));
        return {};
    }

    Failure choose(const TreeEntry& folder, Choice& choice) override
    {
        choice = isWorkName(folder.name) ? Choice::skip : Choice::enter;
        return {};
    }

    Failure enter(const TreeEntry& folder, int opened) override
    {
        struct stat status {};
        if (fstat(opened, &status) != 0) {
            return failed(folder, errno);
        }
        isArchivesPlace_ = Identity::of(status) == place_;
        privacy_.narrowTo(opened, status);
        Entry entry = entryOf(nameOf(folder) + "/", status);
        batchFor(0).entries.push_back(std::move(entry));
        return {};
    }

    Failure failed(const TreeEntry& item, int error) override
    {
        if (error != ENOENT || item.isRoot()) {
            failSource(nameOf(item), std::strerror(error));
        }
        return {};
    }

    // Writes what is left, and puts the archive into its place.
    void finish()
    {
        // An archive of nothing but folders holds one that is encrypted, for the sake of its password.
        if (!job_.password.empty() && !isAnyEncrypted_) {
            batch_->entries.back().isEncrypted = true;
        }
        submitBatch();
        while (!work_.isEmpty()) {
            writer_.write(work_.take());
        }
        writer_.finish();
        archive_.publish(privacy_);
    }

private:
    static Identity identityOf(int folder)
    {
        struct stat status {};
        return fstat(folder, &status) == 0 ? Identity::of(status) : Identity{};
    }
    std::string nameOf(const TreeEntry& item) const { return job_.sourceName + item.path(); }

    Entry entryOf(std::string name, const struct stat& status)
    {
        throwIfInterrupted();
        std::string path;
        if (const char* wrong = appendPath(path, name)) {
            failSource(name, wrong); // no archive may bring it
        }
        Entry entry;
        entry.name = std::move(name);
        entry.mode = status.st_mode;
        entry.modified = status.st_mtime;
        entry.isEncrypted = !job_.password.empty() && !S_ISDIR(status.st_mode);
        isAnyEncrypted_ = isAnyEncrypted_ || entry.isEncrypted;
        return entry;
    }

    Failure addLink(const TreeEntry& item)
    {
        struct stat status {};
        std::array<char, 4096> target{}; // PATH_MAX on Linux, four times that of macOS
        const auto length = readlinkat(item.folder, item.name, target.data(), target.size());
        if (length < 0 || fstatat(item.folder, item.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return failed(item, errno);
        }
        if (!S_ISLNK(status.st_mode) || static_cast<std::size_t>(length) == target.size()) {
            failSource(nameOf(item), "it changes, or leads to an endless path");
        }
        Entry entry = entryOf(nameOf(item), status);
        entry.size = static_cast<std::uint64_t>(length);
        PackTask& batch = batchFor(entry.size);
        std::memcpy(batch.input.data() + batch.filled, target.data(), static_cast<std::size_t>(length));
        batch.filled += static_cast<std::size_t>(length);
        batch.entries.push_back(std::move(entry));
        return {};
    }

    // As large as it was when it was opened: what grows meanwhile has an end, too.
    void addLarge(int file, std::uint64_t size, Entry entry)
    {
        submitBatch();
        const std::string name = entry.name;
        entry.mayBeLarge = size >= zip64From;
        entry.method = trial_.isDense(sampleOf(file, size)) ? Method::store : Method::deflate;
        window_.clear();
        for (bool isFirst = true, isLast = false; !isLast; isFirst = false) {
            throwIfInterrupted();
            PackTask& task = freshTask();
            std::copy(window_.begin(), window_.end(), task.input.begin());
            const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(size, blockSize));
            const std::size_t count = readUpTo(file, std::span(task.input).subspan(window_.size(), wanted), name);
            size -= count;
            isLast = size == 0 || count < wanted;
            task.filled = window_.size() + count;
            task.block = Block{entry.method, window_.size(), isFirst, isLast};
            if (isFirst) {
                task.entries.push_back(entry);
            }
            const auto end = task.input.begin() + static_cast<std::ptrdiff_t>(task.filled);
            window_.assign(end - static_cast<std::ptrdiff_t>(std::min(task.filled, deflateWindow)), end);
            work_.submit();
        }
    }

    // A batch with room for one more item. The last one always has something in it.
    PackTask& batchFor(std::uint64_t size)
    {
        if (batch_ != nullptr && (batch_->filled + size > blockSize || batch_->entries.size() == mostOfBatch)) {
            submitBatch();
        }
        if (batch_ == nullptr) {
            batch_ = &freshTask();
        }
        return *batch_;
    }

    PackTask& freshTask()
    {
        if (work_.isFull()) {
            writer_.write(work_.take());
        }
        PackTask& task = work_.next();
        task.reset();
        task.password = job_.password;
        return task;
    }

    void submitBatch()
    {
        if (batch_ != nullptr) {
            batch_ = nullptr;
            work_.submit();
        }
    }

    const Job& job_;
    ResultFile& archive_;
    ArchiveWriter writer_;
    Privacy privacy_;
    OrderedWork<PackTask> work_;
    PackTask* batch_ = nullptr; // the one that is being filled
    BlockDeflater trial_;
    std::vector<std::byte> window_;
    Identity place_;               // the folder that the archive gets its name in
    bool isArchivesPlace_ = false; // the innermost folder of the walk
    bool isAnyEncrypted_ = false;
};

} // namespace

void pack(const Job& job)
{
    const std::string path = job.sourceFolder + job.sourceName;
    struct stat status {};
    Descriptor source = openForReading(AT_FDCWD, path.c_str());
    if (!source || fstat(source.get(), &status) != 0) {
        fail(Exit::unusableSource, std::string("the source can't be opened: ") + std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        fail(Exit::unusableSource, "the source is neither a file nor a folder");
    }
    ResultFile archive(job.destinationFolder, job.destinationName, status);
    Packing packing(job, archive);
    if (S_ISREG(status.st_mode)) {
        packing.addFile(source.get(), status, job.sourceName);
    } else if (walkFolder(std::move(source), packing, platform::posix::Names::sorted)) {
        fail(Exit::unusableSource, "a folder was moved while it was packed");
    }
    packing.finish();
}

} // namespace archiver
