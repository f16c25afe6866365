// Zip archives: what is read is what the archive says, below the destination, and of nothing more than it announces.
//
// An input is an archive; its password is "password".
#include "fuzz/target.h"

#include "archiver/failure.h"
#include "archiver/source_file.h"
#include "archiver/zip_content.h"
#include "archiver/zip_reader.h"
#include "platform/posix/descriptor.h"

#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdint>
#include <set>
#include <string>

namespace {

using archiver::Exit;
using archiver::Failure;
using archiver::ZipArchive;
using archiver::ZipEntry;

constexpr std::uint64_t mostContent = std::uint64_t{4} << 20U;

bool isSafe(std::string_view path)
{
    const std::string framed = "/" + std::string(path) + "/";
    return framed.find("//") == std::string::npos && framed.find("/./") == std::string::npos &&
           framed.find("/../") == std::string::npos && path.find('\0') == std::string_view::npos &&
           path.find('\\') == std::string_view::npos;
}

void paths(const ZipArchive& archive)
{
    std::set<std::string, std::less<>> leaves;
    std::string_view before;
    for (const ZipEntry& entry : archive.entries()) {
        const std::string_view path = archive.path(entry);
        FUZZ_CHECK(isSafe(path));
        FUZZ_CHECK(path != before);
        for (std::size_t slash = path.find('/'); slash != std::string_view::npos; slash = path.find('/', slash + 1)) {
            FUZZ_CHECK(!leaves.contains(path.substr(0, slash)));
        }
        if (entry.kind != ZipEntry::Kind::folder) {
            FUZZ_CHECK(leaves.emplace(path).second);
        }
        before = path;
    }
}

void content(const ZipArchive& archive, const ZipEntry& entry)
{
    std::uint64_t size = 0;
    uLong crc = 0;
    try {
        archiver::readContent(archive, entry, "password", [&](std::span<const std::byte> piece) {
            size += piece.size();
            crc = crc32_z(crc, reinterpret_cast<const Bytef*>(piece.data()), piece.size());
            FUZZ_CHECK(size <= entry.size);
            if (size > mostContent) {
                archiver::fail(Exit::notWritten, "enough");
            }
        });
        FUZZ_CHECK(size == entry.size && (!entry.hasCrc || crc == entry.crc));
    } catch (const Failure& failure) {
        FUZZ_CHECK(failure.exit() == Exit::damaged || failure.exit() == Exit::unsupported ||
                   failure.exit() == Exit::wrongZipPassword || size > mostContent);
    }
}

} // namespace

void fuzz::test(std::string_view input)
{
    const platform::posix::Descriptor file(memfd_create("archive", MFD_CLOEXEC));
    FUZZ_CHECK(write(file.get(), input.data(), input.size()) == static_cast<ssize_t>(input.size()));
    const archiver::SourceFile source("/proc/self/fd/" + std::to_string(file.get()));
    try {
        const ZipArchive archive(source);
        paths(archive);
        for (const ZipEntry& entry : archive.entries()) {
            content(archive, entry);
        }
    } catch (const Failure& failure) {
        FUZZ_CHECK(failure.exit() == Exit::damaged || failure.exit() == Exit::unsupported);
    }
}
