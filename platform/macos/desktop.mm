#import "platform/macos/cocoa_text.h"

#import <AppKit/AppKit.h>

#include "platform/desktop.h"

// Carries one question to the main thread, where AppKit must be used, and the answer back.
@interface KORBFolidexPanel : NSObject {
    BOOL _choosesFolders;
    NSString* _prompt;
    BOOL _confirmed;
    NSString* _path;
}
- (instancetype)initForFolders:(BOOL)choosesFolders prompt:(NSString*)prompt;
- (void)run;
- (BOOL)confirmed;
- (NSString*)path;
@end

@implementation KORBFolidexPanel

- (instancetype)initForFolders:(BOOL)choosesFolders prompt:(NSString*)prompt
{
    self = [super init];
    if (self != nil) {
        _choosesFolders = choosesFolders;
        _prompt = [prompt copy];
    }
    return self;
}

#if !__has_feature(objc_arc)
- (void)dealloc
{
    [_prompt release];
    [_path release];
    [super dealloc];
}
#endif

- (void)run
{
    @try {
        NSOpenPanel* panel = [NSOpenPanel openPanel];
        [panel setCanChooseFiles:!_choosesFolders];
        [panel setCanChooseDirectories:_choosesFolders];
        [panel setAllowsMultipleSelection:NO];
        [panel setPrompt:_prompt];
        // NSModalResponseOK; GNUstep's header knows the number by its older name only.
        _confirmed = [panel runModal] == 1;
        NSURL* url = [[panel URLs] count] > 0 ? [[panel URLs] objectAtIndex:0] : nil;
        _path = [[url path] copy];
    } @catch (NSException* exception) {
        NSLog(@"Folidex: the open panel can't be shown: %@", [exception reason]);
        _confirmed = YES; // and no path: a failure, not a user's cancel
    }
}

- (BOOL)confirmed
{
    return _confirmed;
}

- (NSString*)path
{
    return _path;
}

@end

namespace platform {

using namespace cocoa;

Choice chooseItem(ChooserKind kind, std::string_view prompt)
{
    @autoreleasepool {
        @try {
            NSString* label = [[NSString alloc] initWithBytes:prompt.data()
                                                       length:prompt.size()
                                                     encoding:NSUTF8StringEncoding];
            KORBFolidexPanel* panel = [[KORBFolidexPanel alloc] initForFolders:kind == ChooserKind::folder
                                                                        prompt:label];
#if !__has_feature(objc_arc)
            [label autorelease];
            [panel autorelease];
#endif
            if ([NSThread isMainThread]) {
                [panel run];
            } else {
                [panel performSelectorOnMainThread:@selector(run) withObject:nil waitUntilDone:YES];
            }
            if (![panel confirmed]) {
                return {Choice::Answer::cancelled, {}};
            }
            if ([panel path] == nil) {
                return {Choice::Answer::failed, {}};
            }
            return {Choice::Answer::chosen, utf8Of([panel path])};
        } @catch (NSException*) {
            return {Choice::Answer::failed, {}};
        }
    }
}

bool openWithDefaultApplication(PathView path)
{
    @autoreleasepool {
        @try {
            NSString* string = pathFrom(path);
#ifdef GNUSTEP
            return string != nil && [[NSWorkspace sharedWorkspace] openFile:string] != NO;
#else
            // openFile: with another name since macOS 11: the same services, the same answer.
            return string != nil && [[NSWorkspace sharedWorkspace] openURL:[NSURL fileURLWithPath:string]] != NO;
#endif
        } @catch (NSException*) {
            return false;
        }
    }
}

} // namespace platform
