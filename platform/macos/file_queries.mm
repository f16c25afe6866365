#import "platform/macos/cocoa_text.h"

#include "platform/file_manager.h"
#include "platform/unicode.h"

#include <sys/stat.h>

#include <cmath>
#include <string>
#include <vector>

namespace platform {

using namespace macos;

namespace {

std::optional<UnixTime> wholeSeconds(NSDate* date)
{
    if (date == nil) {
        return std::nullopt;
    }
    return static_cast<UnixTime>(std::floor([date timeIntervalSince1970]));
}

// NSDate counts in double precision, which rounds the last 100 ns of a second up to the next one.
void takeExactSeconds(Attributes& answer, NSString* path)
{
    struct stat status = {};
    if (::lstat([path fileSystemRepresentation], &status) != 0) {
        return;
    }
#ifdef GNUSTEP
    answer.modificationDate = status.st_mtim.tv_sec;
#else
    if (answer.creationDate) {
        answer.creationDate = status.st_birthtimespec.tv_sec;
    }
    answer.modificationDate = status.st_mtimespec.tv_sec;
#endif
}

struct Entry {
    std::string name;
    bool isFolder;
};

// Collected before anything is shown: a visitor's C++ exception must not unwind through Objective-C frames.
Outcome collectEntries(PathView folder, std::vector<Entry>& entries)
{
    @autoreleasepool {
        @try {
            NSString* path = pathFrom(folder);
            if (path == nil) {
                return noSuchItem();
            }
            NSFileManager* manager = [NSFileManager defaultManager];
            NSError* error = nil;
            NSArray* names = [manager contentsOfDirectoryAtPath:path error:&error];
            if (names == nil) {
                return failureFrom(error, path);
            }
            entries.reserve([names count]);
            for (NSString* name in names) {
                @autoreleasepool { // of its own: there may be very many
                    BOOL isFolder = NO;
                    [manager fileExistsAtPath:[NSString stringWithFormat:@"%@/%@", path, name] isDirectory:&isFolder];
                    entries.push_back({utf8Of([name lastPathComponent]), isFolder != NO});
                }
            }
            return Outcome::success();
        } @catch (NSException* exception) {
            return Outcome::failure(utf8Of([exception reason]));
        }
    }
}

// NSError-reporting where the system has it; GNUstep only has the older call, which answers nil.
NSArray* subpathsOf(NSString* folder, NSError** error)
{
    NSFileManager* manager = [NSFileManager defaultManager];
#ifdef GNUSTEP
    (void)error;
    return [manager subpathsAtPath:folder];
#else
    return [manager subpathsOfDirectoryAtPath:folder error:error];
#endif
}

} // namespace

Existence existence(PathView path)
{
    @autoreleasepool {
        @try {
            NSString* string = pathFrom(path);
            BOOL isFolder = NO;
            if (string == nil || ![[NSFileManager defaultManager] fileExistsAtPath:string isDirectory:&isFolder]) {
                return {};
            }
            return {true, isFolder != NO};
        } @catch (NSException*) {
            return {};
        }
    }
}

std::optional<Attributes> attributes(PathView path)
{
    @autoreleasepool {
        @try {
            NSString* string = pathFrom(path);
            if (string == nil) {
                return std::nullopt;
            }
            NSDictionary* found = [[NSFileManager defaultManager] attributesOfItemAtPath:string error:nullptr];
            if (found == nil) {
                return std::nullopt;
            }
            Attributes answer{
                [found fileSize], wholeSeconds([found fileCreationDate]), wholeSeconds([found fileModificationDate])};
            takeExactSeconds(answer, string);
            return answer;
        } @catch (NSException*) {
            return std::nullopt;
        }
    }
}

UnixTime accessTime(PathView path)
{
    struct stat record = {};
    const auto bytes = fileSystemRepresentation(path);
    if (!bytes || ::stat(bytes->c_str(), &record) != 0) {
        return 0;
    }
#ifdef GNUSTEP
    return record.st_atim.tv_sec;
#else
    return record.st_atimespec.tv_sec;
#endif
}

Outcome listFolder(PathView folder, const EntryVisitor& visitor)
{
    std::vector<Entry> entries;
    const Outcome outcome = collectEntries(folder, entries);
    for (const Entry& entry : entries) {
        visitor(entry.name, entry.isFolder);
    }
    return outcome;
}

Outcome sumFolderSizes(PathView folder, std::uint64_t& bytes)
{
    @autoreleasepool {
        @try {
            NSString* path = pathFrom(folder);
            if (path == nil) {
                return noSuchItem();
            }
            NSError* error = nil;
            NSArray* subpaths = subpathsOf(path, &error);
            if (subpaths == nil || error != nil) {
                return failureFrom(error, path);
            }
            for (NSString* subpath in subpaths) {
                @autoreleasepool { // of its own: there may be very many
                    // stat(2) follows links, as fileAttributesAtPath:traverseLink: did.
                    struct stat record = {};
                    if (::stat([[path stringByAppendingPathComponent:subpath] fileSystemRepresentation], &record) ==
                        0) {
                        bytes += static_cast<std::uint64_t>(record.st_size);
                    }
                }
            }
            return Outcome::success();
        } @catch (NSException* exception) {
            return Outcome::failure(utf8Of([exception reason]));
        }
    }
}

} // namespace platform
