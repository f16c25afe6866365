// Damage of every byte: whatever one becomes, it's an error, or what was packed comes out.
#include "archiver/failure.h"
#include "archiver/source_file.h"
#include "archiver/zip_content.h"
#include "archiver/zip_reader.h"

#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <map>
#include <ostream>
#include <span>
#include <string>

namespace archiver {

namespace {

using Contents = std::map<std::string, std::string>;

// As an expansion reads it, for a password (empty: none).
Contents contentsOf(const std::string& path, const std::string& password)
{
    const SourceFile source(path);
    const ZipArchive archive(source);
    requireCiphers(archive, password);
    Contents contents;
    for (const ZipEntry& entry : archive.entries()) {
        std::string& content = contents[std::string(archive.path(entry))];
        readContent(archive, entry, password, [&](std::span<const std::byte> piece) {
            content.append(reinterpret_cast<const char*>(piece.data()), piece.size());
        });
    }
    return contents;
}

struct Sample {
    friend std::ostream& operator<<(std::ostream& stream, const Sample& sample) { return stream << sample.name; }

    const char* name;
    const char* password;
};

class ZipReaderTest : public testing::TestWithParam<Sample> {};

TEST_P(ZipReaderTest, NeverTakesDamageForContent)
{
    const folidex::test::ScratchFolder folder;
    const auto [name, password] = GetParam();
    const std::string path = (folder.path() / "x.zip").string();
    const std::string archive = folder.read(std::filesystem::path(ZIP_ARCHIVES) / name);
    folder.write("x.zip", archive);
    const Contents packed = contentsOf(path, password);
    std::size_t noticed = 0;
    for (std::size_t index = 0; index < archive.size(); ++index) {
        for (const int flip : {0x01, 0x80, 0xff}) {
            std::string damaged = archive;
            damaged[index] = static_cast<char>(damaged[index] ^ flip);
            folder.write("x.zip", damaged);
            try {
                for (const auto& [entry, content] : contentsOf(path, password)) {
                    ASSERT_EQ(packed.at(entry), content) << "byte " << index << " ^ " << flip;
                }
            } catch (const Failure& failure) {
                ++noticed;
                ASSERT_TRUE(failure.exit() == Exit::damaged || failure.exit() == Exit::unsupported ||
                            failure.exit() == Exit::passwordNeeded || failure.exit() == Exit::wrongZipPassword)
                    << failure.cause();
            }
        }
    }
    EXPECT_GT(noticed, archive.size());
}

INSTANTIATE_TEST_SUITE_P(Archives, ZipReaderTest,
                         testing::Values(Sample{"bsdtar.zip", ""}, Sample{"bzip2.zip", ""},
                                         Sample{"small-aes256.zip", "password"},
                                         Sample{"small-zipcrypto.zip", "password"}),
                         [](const auto& instance) {
                             std::string name = instance.param.name;
                             return name.substr(0, name.find_first_of("-.")) + std::to_string(instance.index);
                         });

} // namespace

} // namespace archiver
