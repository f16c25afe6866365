// The records of archives that are too large to be made in a test: what goes into zip64 fields.
#include "archiver/zip_writer.h"

#include "support/scratch_folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <span>
#include <string>
#include <tuple>
#include <vector>

namespace archiver::zip {

namespace {

constexpr std::uint64_t large = 0x1'2345'6789;

std::span<const std::byte> bytesOf(const std::string& text)
{
    return std::as_bytes(std::span(text));
}

// Numbers of the field zip64 of an entry whose extra fields begin at `at`; it has to be the first.
std::vector<std::uint64_t> zip64Numbers(std::span<const std::byte> bytes, std::size_t at)
{
    std::vector<std::uint64_t> numbers;
    if (get16(bytes, at) == ExtraField::zip64) {
        for (std::size_t offset = 0; offset < get16(bytes, at + 2); offset += sizeof(std::uint64_t)) {
            numbers.push_back(get64(bytes, at + ExtraField::headerLength + offset));
        }
    }
    return numbers;
}

class ZipWriterTest : public testing::Test {
protected:
    // What the directory writes.
    std::string written(const CentralDirectory& directory)
    {
        ResultFile file(folder_.path().string() + "/", "x.zip", {});
        directory.write(file);
        file.publish(Privacy());
        return folder_.read("x.zip");
    }

private:
    folidex::test::ScratchFolder folder_;
};

TEST_F(ZipWriterTest, PutsLargeNumbersIntoZip64Fields)
{
    struct Case {
        std::uint64_t size, compressedSize, offset;
        std::vector<std::uint64_t> expected;
    };
    const Case cases[] = {
        {1, 2, 3, {}},
        {elsewhere32 - 1, elsewhere32 - 1, elsewhere32 - 1, {}},
        {elsewhere32, 2, 3, {elsewhere32}},
        {1, large, 3, {large}},
        {1, 2, large, {large}},
        {large + 2, large + 1, large, {large + 2, large + 1, large}},
    };
    for (const Case& each : cases) {
        Entry entry;
        entry.name = "name";
        entry.mode = S_IFREG | 0644;
        std::tie(entry.size, entry.compressedSize, entry.offset) =
            std::tie(each.size, each.compressedSize, each.offset);
        CentralDirectory directory;
        directory.add(entry);
        const std::string text = written(directory);
        const auto bytes = bytesOf(text);
        const auto shown = [&](std::uint64_t value) { return value < elsewhere32 ? value : elsewhere32; };
        EXPECT_EQ(get32(bytes, CentralHeader::size), shown(each.size));
        EXPECT_EQ(get32(bytes, CentralHeader::compressedSize), shown(each.compressedSize));
        EXPECT_EQ(get32(bytes, CentralHeader::localHeader), shown(each.offset));
        EXPECT_EQ(zip64Numbers(bytes, CentralHeader::length + entry.name.size()), each.expected) << each.size;
        EXPECT_EQ(get16(bytes, CentralHeader::version), each.expected.empty() ? 20 : 45);
    }
}

TEST_F(ZipWriterTest, HasRoomInTheLocalHeaderForSizesThatMayComeOutLarge)
{
    Entry entry;
    entry.name = "name";
    entry.mayBeLarge = true;
    std::vector<std::byte> before;
    appendLocalHeader(entry, before);
    entry.size = large;
    entry.compressedSize = large - 1;
    std::vector<std::byte> after;
    appendLocalHeader(entry, after);
    EXPECT_EQ(before.size(), after.size());
    EXPECT_EQ(get32(after, LocalHeader::size), elsewhere32);
    EXPECT_EQ(zip64Numbers(after, LocalHeader::length + 4), (std::vector<std::uint64_t>{large, large - 1}));
}

// The count that is 0xffff is no count; one less is.
TEST_F(ZipWriterTest, CountsManyEntriesInZip64)
{
    for (const std::uint64_t count : {elsewhere16 - 1U, elsewhere16 + 0U, elsewhere16 + 1U}) {
        CentralDirectory directory;
        Entry entry;
        entry.name = "name";
        for (std::uint64_t number = 0; number < count; ++number) {
            directory.add(entry);
        }
        const std::string text = written(directory);
        const auto bytes = bytesOf(text);
        const auto end = bytes.last(EndRecord::length);
        EXPECT_EQ(get16(end, EndRecord::entries), std::min<std::uint64_t>(count, elsewhere16));
        const auto locator = bytes.last(EndRecord::length + Zip64Locator::length);
        const bool isZip64 = get32(locator, 0) == Zip64Locator::signature;
        ASSERT_EQ(isZip64, count >= elsewhere16);
        if (isZip64) {
            const auto record = bytes.subspan(get64(locator, Zip64Locator::endRecord));
            EXPECT_EQ(get32(record, 0), Zip64EndRecord::signature);
            EXPECT_EQ(get64(record, Zip64EndRecord::entries), count);
            EXPECT_EQ(get64(record, Zip64EndRecord::directory) + get64(record, Zip64EndRecord::directoryLength),
                      get64(locator, Zip64Locator::endRecord));
        }
    }
}

} // namespace

} // namespace archiver::zip
