#import "platform/macos/cocoa_text.h"

#import <AppKit/AppKit.h>

#include "platform/volumes.h"

namespace platform {

using namespace cocoa;

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

// What mountedLocalVolumePaths and getFileSystemInfoForPath:… gave before macOS 11 deprecated them.
NSArray* localVolumePaths()
{
    NSArray* keys = @[ NSURLVolumeIsLocalKey ];
    NSArray* urls = [[NSFileManager defaultManager]
        mountedVolumeURLsIncludingResourceValuesForKeys:keys
                                                options:NSVolumeEnumerationSkipHiddenVolumes];
    if (urls == nil) {
        return nil;
    }
    NSMutableArray* paths = [NSMutableArray array];
    for (NSURL* url in urls) {
        NSNumber* isLocal = nil;
        if ([url getResourceValue:&isLocal forKey:NSURLVolumeIsLocalKey error:nil] && [isLocal boolValue]) {
            [paths addObject:[url path]];
        }
    }
    return paths;
}

bool answersFileSystemInfo(NSString* path)
{
    id isRemovable = nil;
    id isReadOnly = nil;
    NSURL* url = [NSURL fileURLWithPath:path];
    return [url getResourceValue:&isRemovable forKey:NSURLVolumeIsRemovableKey error:nil] &&
           [url getResourceValue:&isReadOnly forKey:NSURLVolumeIsReadOnlyKey error:nil];
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
