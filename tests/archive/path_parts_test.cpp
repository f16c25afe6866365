#include "archive/path_parts.h"

#include <gtest/gtest.h>

namespace {

using namespace archive;

TEST(ArchivePathParts, SplitBehindTheLastSlash)
{
    struct Case {
        const char16_t* path;
        const char16_t* folder;
        const char16_t* name;
        const char16_t* absoluteFolder;
    };
    const Case cases[] = {
        {u"/Users/me/a.txt", u"/Users/me/", u"a.txt", u"/Users/me/"},
        {u"Macintosh HD/Users/me/a.txt", u"Macintosh HD/Users/me/", u"a.txt", u"/Users/me/"},
        {u"Disk//x/.y", u"Disk//x/", u".y", u"//x/"},
        {u"/out.d/", u"/out.d/", u"", u"/out.d/"},
        {u"Disk/a.txt", u"Disk/", u"a.txt", u"/"},
        {u"a.txt", u"", u"a.txt", u""},
        {u"", u"", u"", u""},
        // U+012F and U+2F2F are slashes to the split, not to what makes folders absolute.
        {u"/a/b\u012Fc.txt", u"/a/b\u012F", u"c.txt", u"/a/b\u012F"},
        {u"Disk\u2F2Fc.txt", u"Disk\u2F2F", u"c.txt", u""},
    };
    for (const Case& expected : cases) {
        const PathText folder = getPathOfFilepath(expected.path, DotRule::waived);
        EXPECT_EQ(folder, expected.folder);
        EXPECT_EQ(getLastSlashInPath(expected.path), folder.size());
        EXPECT_EQ(getFileNameOfFilepath(expected.path, folder), expected.name);
        EXPECT_EQ(transformIntoAbsolutePath(folder), expected.absoluteFolder);
    }
    EXPECT_EQ(getFileNameOfFilepath(u"/a/b/", u"b/"), u"/a/b/") << "removed at the start only";
}

TEST(ArchivePathParts, AFilesPathNeedsADotSomewhere)
{
    EXPECT_EQ(getPathOfFilepath(u"/Users/me/README", DotRule::required), pathErrorMarker);
    EXPECT_EQ(getPathOfFilepath(u"", DotRule::required), pathErrorMarker);
    EXPECT_EQ(getPathOfFilepath(u"/Users/me.old/README", DotRule::required), u"/Users/me.old/");
}

TEST(ArchivePathParts, TheMarkerIsFoundInAnyLetterCase)
{
    EXPECT_TRUE(holdsPathErrorMarker(u"!!ERROR!!"));
    EXPECT_TRUE(holdsPathErrorMarker(u"/a/x!!errOR!!y/"));
    EXPECT_FALSE(holdsPathErrorMarker(u"/a/!!ERROR!/"));
    EXPECT_FALSE(holdsPathErrorMarker(u""));
}

TEST(ArchivePathParts, OnlyTextsThatAZeroTerminatedStringCanHoldAreCopied)
{
    using namespace std::string_view_literals;
    EXPECT_EQ(CopyCFStringToCharPtr(u"\u00FC'|\U0001F600"sv), "\u00FC'|\U0001F600");
    EXPECT_EQ(CopyCFStringToCharPtr(u""sv), "");
    EXPECT_EQ(CopyCFStringToCharPtr(u"a\0b"sv), std::nullopt);
    EXPECT_EQ(CopyCFStringToCharPtr(std::u16string(1, char16_t{0xD800})), std::nullopt);
    EXPECT_EQ(CopyCFStringToCharPtr(std::nullopt), std::nullopt);
}

} // namespace
