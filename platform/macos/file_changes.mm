#import "platform/macos/cocoa_text.h"

#include "platform/file_manager.h"
#include "platform/macos/transfer.h"

#include <cerrno>
#include <string>

using platform::cocoa::isOrdinary;
using platform::cocoa::makeSpecialFile;

// Decides item by item what a file manager may copy and remove.
@interface KORBFolidexFileGuard : NSObject {
    dev_t _device;
    int _error;
    NSString* _failedPath;
}
- (instancetype)initForDevice:(dev_t)device;
- (BOOL)fileManager:(NSFileManager*)manager shouldCopyItemAtPath:(NSString*)source toPath:(NSString*)target;
- (BOOL)fileManager:(NSFileManager*)manager shouldRemoveItemAtPath:(NSString*)path;
- (int)error; // 0 or the number of the first error
- (NSString*)failedPath;
@end

@implementation KORBFolidexFileGuard

- (instancetype)initForDevice:(dev_t)device
{
    self = [super init];
    if (self != nil) {
        _device = device;
    }
    return self;
}

#if !__has_feature(objc_arc)
- (void)dealloc
{
    [_failedPath release];
    [super dealloc];
}
#endif

- (void)noteError:(int)error atPath:(NSString*)path
{
    if (_error == 0) {
        _error = error;
        _failedPath = [path copy];
    }
}

// FIFOs and devices are made anew.
- (BOOL)fileManager:(NSFileManager*)manager shouldCopyItemAtPath:(NSString*)source toPath:(NSString*)target
{
    (void)manager;
    struct stat status = {};
    if (_error != 0 || ::lstat([source fileSystemRepresentation], &status) != 0) {
        return _error == 0; // let the file manager find out why
    }
    if (isOrdinary(status.st_mode)) {
        return YES;
    }
    const int error = makeSpecialFile([target fileSystemRepresentation], status);
    if (error != 0) {
        [self noteError:error atPath:source];
    }
    return NO;
}

// What is mounted inside of a folder that goes stays full.
- (BOOL)fileManager:(NSFileManager*)manager shouldRemoveItemAtPath:(NSString*)path
{
    (void)manager;
    struct stat status = {};
    if (_error == 0 && ::lstat([path fileSystemRepresentation], &status) == 0 && status.st_dev != _device) {
        [self noteError:EBUSY atPath:path];
    }
    return _error == 0;
}

- (int)error
{
    return _error;
}

- (NSString*)failedPath
{
    return _failedPath;
}

@end

namespace platform {

using namespace cocoa;

namespace {

NSString* stringOf(const std::string& path)
{
    return [[NSFileManager defaultManager] stringWithFileSystemRepresentation:path.c_str() length:path.size()];
}

// Runs one call of a file manager that asks a guard of its own; whatever it raises becomes a failure.
template <typename Call>
Outcome guardedChange(std::string_view action, const Item& item, Call call)
{
    @autoreleasepool {
        @try {
            NSFileManager* manager = [[NSFileManager alloc] init];
            KORBFolidexFileGuard* guard = [[KORBFolidexFileGuard alloc] initForDevice:item.status.st_dev];
#if !__has_feature(objc_arc)
            [manager autorelease];
            [guard autorelease];
#endif
            [manager setDelegate:static_cast<id>(guard)];
            NSError* error = nil;
            const bool done = call(manager, stringOf(item.path), &error);
            [manager setDelegate:nil];
            if ([guard error] != 0) {
                return posixFailure(action, utf8Of([guard failedPath]), [guard error]);
            }
            return done ? Outcome::success() : failureFrom(error, stringOf(item.path));
        } @catch (NSException* exception) {
            return Outcome::failure(utf8Of([exception reason]));
        }
    }
}

Outcome removeTree(std::string_view action, const Item& item)
{
    return guardedChange(action, item, [](NSFileManager* manager, NSString* path, NSError** error) {
        return [manager removeItemAtPath:path error:error] != NO;
    });
}

Outcome copyTo(std::string_view action, const Item& source, const std::string& target)
{
    if (isOrdinary(source.status.st_mode)) {
        return guardedChange(action, source, [&](NSFileManager* manager, NSString* from, NSError** error) {
            return [manager copyItemAtPath:from toPath:stringOf(target) error:error] != NO;
        });
    }
    const int error = makeSpecialFile(target, source.status);
    return error == 0 ? Outcome::success() : posixFailure(action, source.path, error);
}

// The copy grows under another name, so that the target is whole or absent whatever happens to the process.
Outcome copyTree(std::string_view action, const Item& source, const std::string& target)
{
    const std::string temporary = temporaryNameBeside(target);
    Outcome outcome = copyTo(action, source, temporary);
    const int error = outcome.ok() ? renameExclusively(temporary, target) : 0;
    if (error != 0) {
        outcome = posixFailure("write", target, error);
    }
    Item left{temporary};
    if (!outcome.ok() && ::lstat(temporary.c_str(), &left.status) == 0) {
        (void)removeTree(action, left); // the first failure is the one to tell
    }
    return outcome;
}

// Across volumes: the copy is whole and on its disk before the source goes.
Outcome moveAcross(const Item& source, const std::string& target)
{
    Outcome outcome = copyTree("move", source, target);
    if (!outcome.ok()) {
        return outcome;
    }
    if (const int error = synchroniseVolume(target); error != 0) {
        Item copy{target};
        if (::lstat(target.c_str(), &copy.status) == 0) {
            (void)removeTree("move", copy);
        }
        return posixFailure("move", target, error);
    }
    return removeTree("move", source);
}

} // namespace

Outcome copyItem(PathView source, PathView target)
{
    Item item;
    std::string place;
    Outcome outcome = findItem("copy", source, item);
    if (outcome.ok()) {
        outcome = findTarget("copy", item, target, place);
    }
    return outcome.ok() ? copyTree("copy", item, place) : outcome;
}

Outcome moveItem(PathView source, PathView target)
{
    Item item;
    std::string place;
    Outcome outcome = findRemovableItem("move", source, item);
    if (outcome.ok()) {
        outcome = findTarget("move", item, target, place);
    }
    if (!outcome.ok()) {
        return outcome;
    }
    const int error = renameExclusively(item.path, place);
    if (error == EXDEV) {
        return moveAcross(item, place);
    }
    return error == 0 ? Outcome::success() : posixFailure("move", item.path, error);
}

Outcome removeItem(PathView path)
{
    Item item;
    Outcome outcome = findRemovableItem("remove", path, item);
    return outcome.ok() ? removeTree("remove", item) : outcome;
}

Outcome createFolder(PathView path)
{
    return guarded(Outcome::failure("the folder can't be created"), [&] {
        NSString* folder = pathFrom(path);
        if (folder == nil || [folder length] == 0) {
            return noSuchItem();
        }
        NSError* error = nil;
        if (![[NSFileManager defaultManager] createDirectoryAtPath:folder
                                       withIntermediateDirectories:YES
                                                        attributes:nil
                                                             error:&error]) {
            return failureFrom(error, folder);
        }
        // GNUstep is content with a file of that name.
        return existence(path).isFolder ? Outcome::success() : posixFailure("create", utf8Of(folder), EEXIST);
    });
}

} // namespace platform
