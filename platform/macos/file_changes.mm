#import "platform/macos/cocoa_text.h"

#include "platform/file_manager.h"
#include "platform/macos/source_tree.h"
#include "platform/macos/transfer.h"
#include "platform/signal_block.h"

#include <fcntl.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>

using platform::macos::isOrdinary;
using platform::macos::makeSpecialFile;

// Decides item by item what a file manager may copy and remove.
@interface KORBFolidexFileGuard : NSObject <NSFileManagerDelegate> {
    dev_t _device;
    int _error;
    NSString* _failedPath;
}
- (instancetype)initForDevice:(dev_t)device;
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

using namespace macos;

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
            [manager setDelegate:guard];
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

std::string lastName(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

// A failure that names the item by the path that it has for whoever called.
Outcome renamed(const Outcome& outcome, const std::string& from, const std::string& to)
{
    std::string words = outcome.description();
    const std::string name = lastName(from);
    for (std::size_t at = words.find(name); at != std::string::npos; at = words.find(name, at)) {
        words.replace(at, name.size(), lastName(to));
    }
    return outcome.ok() ? outcome : Outcome::failure(std::move(words));
}

struct Aim {
    std::string_view action; // "copy" or "move"
    bool isDurable = false;  // on the disk with its name before success is answered
};

// The copy grows under another name, so that the target is whole or absent whatever happens to the process.
Outcome copyTree(const Aim& aim, SourceTree& tree, const Item& source, const std::string& target)
{
    Outcome outcome = tree.examine();
    if (!outcome.ok()) {
        return outcome;
    }
    const std::string temporary = temporaryNameBeside(target);
    outcome = renamed(copyTo(aim.action, source, temporary), temporary, target);
    if (outcome.ok()) {
        outcome = tree.requireCopied(temporary, target);
    }
    int error = outcome.ok() && aim.isDurable ? flushItem(temporary) : 0;
    if (outcome.ok() && error == 0) {
        error = publish(temporary, target);
        if (error == 0 && aim.isDurable) {
            error = flushName(target);
            if (error != 0) {
                discard(target);
            }
        }
    }
    if (error != 0) {
        outcome = posixFailure("write", target, error);
    }
    if (!outcome.ok()) {
        discard(temporary);
    }
    return outcome;
}

// Across volumes: the copy is whole and on its disk before the source goes.
Outcome moveAcross(const Item& source, const std::string& target)
{
    SourceTree tree("move", source);
    Outcome outcome = copyTree({.action = "move", .isDurable = true}, tree, source, target);
    if (!outcome.ok()) {
        return outcome;
    }
    outcome = tree.remove();
    if (!outcome.ok() && !S_ISDIR(source.status.st_mode)) {
        discard(target); // of a folder, the copy alone may be whole by now
    }
    return outcome;
}

// Removes what is at the target. It loses its name before it goes for good: only then can be seen that the source isn't
// the same item by a name that this file system takes for another spelling.
Outcome removeExisting(const Item& source, const std::string& target)
{
    Item existing{temporaryNameBeside(target)};
    if (::rename(target.c_str(), existing.path.c_str()) != 0) {
        // A folder that may not be written to can't be renamed; an empty one, or a file, can go as it is.
        const int error = errno;
        return error == ENOENT || std::remove(target.c_str()) == 0 ? Outcome::success()
                                                                   : posixFailure("remove", target, error);
    }
    const auto showAgain = [&] { renameExclusively(AT_FDCWD, existing.path.c_str(), AT_FDCWD, target.c_str()); };
    struct stat status = {};
    if (::lstat(source.path.c_str(), &status) != 0) {
        showAgain();
        return Outcome::failure("could not remove " + shortened(target) + ": the source would go with it");
    }
    Outcome outcome = ::lstat(existing.path.c_str(), &existing.status) == 0
                          ? renamed(removeTree("remove", existing), existing.path, target)
                          : posixFailure("remove", target, errno);
    if (!outcome.ok()) {
        showAgain();
    }
    return outcome;
}

Outcome moveByRenaming(const Item& source, const std::string& target, bool isDurable)
{
    const auto rename = [](const std::string& from, const std::string& to) {
        return renameExclusively(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str());
    };
    const int error = rename(source.path, target);
    if (error == EXDEV) {
        return moveAcross(source, target);
    }
    if (error != 0) {
        return posixFailure("move", error == EEXIST ? target : source.path, error);
    }
    const int flushError = isDurable ? flushName(target) : 0;
    if (flushError != 0) {
        rename(target, source.path);
        return posixFailure("write", target, flushError);
    }
    return Outcome::success();
}

} // namespace

Outcome copyItem(PathView source, PathView target, Existing existing)
{
    const SignalBlock noFileSizeSignal(SIGXFSZ);
    const bool replaces = existing == Existing::replaced;
    Item item;
    std::string place;
    Outcome outcome = findItem("copy", source, item);
    if (outcome.ok()) {
        outcome = findTarget("copy", item, target, existing, place);
    }
    if (outcome.ok() && replaces) {
        outcome = removeExisting(item, place);
    }
    if (!outcome.ok()) {
        return outcome;
    }
    SourceTree tree("copy", item);
    return copyTree({.action = "copy", .isDurable = replaces}, tree, item, place);
}

Outcome moveItem(PathView source, PathView target, Existing existing)
{
    const SignalBlock noFileSizeSignal(SIGXFSZ);
    const bool replaces = existing == Existing::replaced;
    Item item;
    std::string place;
    Outcome outcome = findRemovableItem("move", source, item);
    if (outcome.ok()) {
        outcome = findTarget("move", item, target, existing, place);
    }
    if (outcome.ok() && replaces) {
        const int error = flushItem(item.path);
        outcome = error == 0 ? removeExisting(item, place) : posixFailure("move", item.path, error);
    }
    return outcome.ok() ? moveByRenaming(item, place, replaces) : outcome;
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
