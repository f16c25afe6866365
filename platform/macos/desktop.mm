#import "platform/macos/cocoa_text.h"

#import <AppKit/AppKit.h>

#include "platform/desktop.h"
#include "platform/macos/gui_session.h"

namespace {

enum class ErrandState { waiting, running, done, abandoned };

} // namespace

// A call that has to be made on the main thread, where alone AppKit may be used.
@interface KORBFolidexErrand : NSObject {
    void (*_call)(void*);
    void* _context;
    NSCondition* _condition; // of _state
    ErrandState _state;
}
- (instancetype)initWithCall:(void (*)(void*))call context:(void*)context;
- (void)run;
- (BOOL)waitWithStartWithin:(NSTimeInterval)seconds; // NO when it wasn't begun by then; it never will be
@end

@implementation KORBFolidexErrand

- (instancetype)initWithCall:(void (*)(void*))call context:(void*)context
{
    self = [super init];
    if (self != nil) {
        _call = call;
        _context = context;
        _condition = [[NSCondition alloc] init];
        _state = ErrandState::waiting;
    }
    return self;
}

#if !__has_feature(objc_arc)
- (void)dealloc
{
    [_condition release];
    [super dealloc];
}
#endif

- (void)run
{
    [_condition lock];
    const bool isWanted = _state == ErrandState::waiting;
    if (isWanted) {
        _state = ErrandState::running;
    }
    [_condition unlock];
    if (!isWanted) {
        return; // who asked, and the context with them, may be gone
    }
    // An exception that left here would end in the main thread's run loop and never reach who waits.
    @try {
        _call(_context);
    } @catch (NSException* exception) {
        NSLog(@"Folidex: %@", [exception reason]);
    }
    [_condition lock];
    _state = ErrandState::done;
    [_condition signal];
    [_condition unlock];
}

- (BOOL)waitWithStartWithin:(NSTimeInterval)seconds
{
    NSDate* latest = [NSDate dateWithTimeIntervalSinceNow:seconds];
    [_condition lock];
    while (_state == ErrandState::waiting && [_condition waitUntilDate:latest]) {
    }
    if (_state == ErrandState::waiting) {
        _state = ErrandState::abandoned;
    }
    while (_state == ErrandState::running) {
        [_condition wait];
    }
    const BOOL isDone = _state == ErrandState::done;
    [_condition unlock];
    return isDone;
}

@end

namespace platform {

using namespace macos;

namespace {

// Runs `call` on the main thread and waits for it. Nothing happens where that thread doesn't begin with it for 5
// seconds, as in a host whose main thread runs no loop.
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
        [errand performSelectorOnMainThread:@selector(run) withObject:nil waitUntilDone:NO];
        [errand waitWithStartWithin:5];
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
