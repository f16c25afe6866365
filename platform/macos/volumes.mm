#import "platform/macos/cocoa_text.h"

#include "platform/volumes.h"

#ifdef GNUSTEP
#import <AppKit/AppKit.h>
#else
#include <sys/mount.h>
#endif

#include <algorithm>

namespace platform {

using namespace macos;

namespace {

#ifdef GNUSTEP

// Without URL resource values: the workspace's own list and test.
NSArray* localVolumePaths()
{
    return [[NSWorkspace sharedWorkspace] mountedLocalVolumePaths];
}

bool answersFileSystemInfo(NSString* path)
{
    BOOL removable = NO;
    BOOL writable = NO;
    BOOL unmountable = NO;
    NSString* description = nil;
    NSString* type = nil;
    return [[NSWorkspace sharedWorkspace] getFileSystemInfoForPath:path
                                                       isRemovable:&removable
                                                        isWritable:&writable
                                                     isUnmountable:&unmountable
                                                       description:&description
                                                              type:&type] != NO;
}

#else

// What mountedLocalVolumePaths gave before macOS 11 deprecated it. The kernel's own list is read (getfsstat(2),
// MNT_NOWAIT) instead of NSFileManager's, which would ask each volume whether it is local: a dead server never answers.
NSArray* localVolumePaths()
{
    const int expected = ::getfsstat(nullptr, 0, MNT_NOWAIT);
    if (expected < 0) {
        return nil;
    }
    std::vector<struct statfs> mounts(static_cast<std::size_t>(expected) + 8); // some may be mounted meanwhile
    const int found = ::getfsstat(mounts.data(), static_cast<int>(mounts.size() * sizeof(struct statfs)), MNT_NOWAIT);
    if (found < 0) {
        return nil;
    }
    mounts.resize(std::min(mounts.size(), static_cast<std::size_t>(found)));
    NSMutableArray* paths = [NSMutableArray array];
    for (const struct statfs& mount : mounts) {
        const bool isShown = (mount.f_flags & MNT_LOCAL) != 0 && (mount.f_flags & MNT_DONTBROWSE) == 0;
        NSString* path = isShown ? [NSString stringWithUTF8String:mount.f_mntonname] : nil;
        if (path != nil) {
            [paths addObject:path];
        }
    }
    return paths;
}

// What getFileSystemInfoForPath:… needs to know of a volume.
bool answersFileSystemInfo(NSString* path)
{
    id isRemovable = nil;
    id isReadOnly = nil;
    NSURL* url = [NSURL fileURLWithPath:path];
    return [url getResourceValue:&isRemovable forKey:NSURLVolumeIsRemovableKey error:nullptr] != NO &&
           [url getResourceValue:&isReadOnly forKey:NSURLVolumeIsReadOnlyKey error:nullptr] != NO;
}

#endif

} // namespace

std::optional<std::vector<std::u16string>> mountedLocalVolumeNames()
{
    @autoreleasepool {
        @try {
            NSArray* paths = localVolumePaths();
            if (paths == nil) {
                return std::nullopt;
            }
            std::vector<std::u16string> names;
            for (NSString* path in paths) {
                if (answersFileSystemInfo(path)) {
                    names.push_back(unitsOf([[NSFileManager defaultManager] displayNameAtPath:path]));
                }
            }
            return names;
        } @catch (NSException*) {
            return std::nullopt;
        }
    }
}

std::optional<VolumeSpace> volumeSpace(PathView path)
{
    @autoreleasepool {
        @try {
            NSString* string = pathFrom(path);
            NSDictionary* found =
                string == nil ? nil
                              : [[NSFileManager defaultManager] attributesOfFileSystemForPath:string error:nullptr];
            if (found == nil) {
                return std::nullopt;
            }
            return VolumeSpace{[[found objectForKey:NSFileSystemSize] longLongValue],
                               [[found objectForKey:NSFileSystemFreeSize] longLongValue]};
        } @catch (NSException*) {
            return std::nullopt;
        }
    }
}

} // namespace platform
