#import "platform/macos/cocoa_text.h"

#import <AppKit/AppKit.h>

#include "platform/desktop.h"
#include "platform/macos/gui_session.h"

// A call that has to be made on the main thread, where alone AppKit may be used.
@interface KORBFolidexErrand : NSObject {
    void (*_call)(void*);
    void* _context;
}
- (instancetype)initWithCall:(void (*)(void*))call context:(void*)context;
- (void)run;
@end

@implementation KORBFolidexErrand

- (instancetype)initWithCall:(void (*)(void*))call context:(void*)context
{
    self = [super init];
    if (self != nil) {
        _call = call;
        _context = context;
    }
    return self;
}

// An exception that left here would end in the main thread's run loop and never reach who waits.
- (void)run
{
    @try {
        _call(_context);
    } @catch (NSException* exception) {
        NSLog(@"Folidex: %@", [exception reason]);
    }
}

@end

namespace platform {

using namespace cocoa;

namespace {

// Runs `call` on the main thread and waits for it; that thread has to run its loop, as FileMaker Pro's does.
template <typename Call>
void onMainThread(Call& call)
{
    void (*const run)(void*) = [](void* context) { (*static_cast<Call*>(context))(); };
    KORBFolidexErrand* errand = [[KORBFolidexErrand alloc] initWithCall:run context:&call];
#if !__has_feature(objc_arc)
    [errand autorelease];
#endif
    if ([NSThread isMainThread]) {
        [errand run];
    } else {
        [errand performSelectorOnMainThread:@selector(run) withObject:nil waitUntilDone:YES];
    }
}

// FileMaker Pro is an application already; a command-line host becomes one without a place in the Dock.
void becomeApplication()
{
    if (NSApp == nil) {
        [NSApplication sharedApplication];
#ifndef GNUSTEP
        [NSApp setActivationPolicy:NSApplicationActivationPolicyAccessory];
#endif
        [NSApp activateIgnoringOtherApps:YES];
    }
}

struct PanelAnswer {
    bool ended = false; // false when an exception came first
    bool confirmed = false;
    NSString* path = nil;
};

// On the main thread only. The answer's path is the caller's to release.
void runPanel(ChooserKind kind, NSString* prompt, PanelAnswer& answer)
{
    becomeApplication();
    NSOpenPanel* panel = [NSOpenPanel openPanel];
    [panel setCanChooseFiles:kind == ChooserKind::file];
    [panel setCanChooseDirectories:kind == ChooserKind::folder];
    [panel setAllowsMultipleSelection:NO];
    [panel setPrompt:prompt];
    // NSModalResponseOK; GNUstep's header knows the number by its older name only.
    answer.confirmed = [panel runModal] == 1;
    NSURL* url = [[panel URLs] count] > 0 ? [[panel URLs] objectAtIndex:0] : nil;
    answer.path = [[url path] copy];
    answer.ended = true;
}

} // namespace

Choice chooseItem(ChooserKind kind, std::string_view prompt)
{
    return guarded(Choice(), [&]() -> Choice {
        if (!hasGuiSession()) {
            return {};
        }
        NSString* label = [[NSString alloc] initWithBytes:prompt.data()
                                                   length:prompt.size()
                                                 encoding:NSUTF8StringEncoding];
        PanelAnswer answer;
        auto show = [&] { runPanel(kind, label, answer); };
        onMainThread(show);
#if !__has_feature(objc_arc)
        [label release];
        [answer.path autorelease];
#endif
        if (answer.ended && !answer.confirmed) {
            return {Choice::Answer::cancelled, {}};
        }
        if (answer.path == nil) {
            return {};
        }
        return {Choice::Answer::chosen, utf8Of(answer.path)};
    });
}

bool openWithDefaultApplication(PathView path)
{
    return guarded(false, [&] {
        NSString* string = pathFrom(path);
        bool opened = false;
        auto open = [&] {
#ifdef GNUSTEP
            opened = [[NSWorkspace sharedWorkspace] openFile:string] != NO;
#else
            // What became of openFile: in macOS 11: the same services, the same answer.
            opened = [[NSWorkspace sharedWorkspace] openURL:[NSURL fileURLWithPath:string]] != NO;
#endif
        };
        if (string != nil && hasGuiSession()) {
            onMainThread(open);
        }
        return opened;
    });
}

} // namespace platform
