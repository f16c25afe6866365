#import "platform/macos/cocoa_text.h"

#include "platform/file_manager.h"
#include "platform/unicode.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace platform {

using namespace cocoa;

namespace {

// Runs one call of the file manager on one or two paths; whatever it raises becomes a failure.
template <typename Call>
Outcome guarded(PathView first, PathView second, Call call)
{
    @autoreleasepool {
        @try {
            NSString* firstPath = pathFrom(first);
            NSString* secondPath = pathFrom(second);
            if (firstPath == nil || secondPath == nil) {
                return noSuchItem();
            }
            NSError* error = nil;
            const bool done = call([NSFileManager defaultManager], firstPath, secondPath, &error);
            return done ? Outcome::success() : failureFrom(error, secondPath);
        } @catch (NSException* exception) {
            return Outcome::failure(utf8Of([exception reason]));
        }
    }
}

NSError* posixError(int code, NSString* path)
{
    NSDictionary* info = [NSDictionary dictionaryWithObject:path forKey:NSFilePathErrorKey];
    return [NSError errorWithDomain:NSPOSIXErrorDomain code:code userInfo:info];
}

// A name beside the target that nothing else uses.
NSString* temporaryNameBeside(NSString* target)
{
    NSString* unique = [[NSProcessInfo processInfo] globallyUniqueString];
    NSString* name = [NSString stringWithFormat:@".folidex-%@", unique];
    return [[target stringByDeletingLastPathComponent] stringByAppendingPathComponent:name];
}

// Renames without replacing anything, in one step where the file system can (rename(2), RENAME_EXCL).
bool publish(NSFileManager* manager, NSString* from, NSString* to, NSError** error)
{
#ifdef __APPLE__
    if (::renamex_np([from fileSystemRepresentation], [to fileSystemRepresentation], RENAME_EXCL) == 0) {
        return true;
    }
    if (errno != ENOTSUP && errno != EINVAL) {
        *error = posixError(errno, to);
        return false;
    }
#endif
    return [manager moveItemAtPath:from toPath:to error:error] != NO;
}

} // namespace

// The copy grows under another name, so that the target is whole or absent whatever happens to the process.
Outcome copyItem(PathView source, PathView target)
{
    return guarded(source, target, [](NSFileManager* manager, NSString* from, NSString* to, NSError** error) {
        if ([manager fileExistsAtPath:to]) {
            *error = posixError(EEXIST, to);
            return false;
        }
        NSString* inside = [[to stringByStandardizingPath] stringByAppendingString:@"/"];
        NSString* tree = [[from stringByStandardizingPath] stringByAppendingString:@"/"];
        if ([inside hasPrefix:tree]) {
            *error = posixError(EINVAL, to); // a folder into itself would never end
            return false;
        }
        NSString* temporary = temporaryNameBeside(to);
        if ([manager copyItemAtPath:from toPath:temporary error:error] && publish(manager, temporary, to, error)) {
            return true;
        }
        [manager removeItemAtPath:temporary error:nullptr];
        return false;
    });
}

Outcome moveItem(PathView source, PathView target)
{
    return guarded(source, target, [](NSFileManager* manager, NSString* from, NSString* to, NSError** error) {
        return [manager moveItemAtPath:from toPath:to error:error] != NO;
    });
}

Outcome removeItem(PathView path)
{
    return guarded(path, path, [](NSFileManager* manager, NSString* item, NSString*, NSError** error) {
        return [manager removeItemAtPath:item error:error] != NO;
    });
}

Outcome createFolder(PathView path)
{
    return guarded(path, path, [](NSFileManager* manager, NSString* folder, NSString*, NSError** error) {
        return [manager createDirectoryAtPath:folder withIntermediateDirectories:YES attributes:nil error:error] != NO;
    });
}

} // namespace platform
