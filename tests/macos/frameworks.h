// The names of Apple's frameworks that this project uses, and no others, declared after Apple's developer
// documentation: what link_test.py compiles and links with in the place of the macOS SDK. All are in macOS 13 and none
// was deprecated by then. Each "// framework NAME" begins what that framework exports.
#pragma once
// clang-format off

#include <cstddef>

// framework CoreFoundation
using Boolean = unsigned char;
using UInt8 = unsigned char;
using UniChar = unsigned short;
using CFIndex = long;
using CFTypeRef = const void*;
using CFStringRef = const struct __CFString*;
using CFURLRef = const struct __CFURL*;
using CFDictionaryRef = const struct __CFDictionary*;
using CFAllocatorRef = const struct __CFAllocator*;
using CFBundleRef = struct __CFBundle*;
using CFUserNotificationRef = struct __CFUserNotification*;
using CFTimeInterval = double;
using SInt32 = int;
struct CFRange { CFIndex location; CFIndex length; };
inline CFRange CFRangeMake(CFIndex location, CFIndex length) { return {location, length}; }
enum CFComparisonResult : CFIndex { kCFCompareEqualTo = 0 };
enum : unsigned { kCFStringEncodingUTF8 = 0x08000100 };
enum { kCFUserNotificationPlainAlertLevel = 3 };
struct CFDictionaryKeyCallBacks;
struct CFDictionaryValueCallBacks;
extern "C" const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern "C" const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
extern "C" const CFStringRef kCFUserNotificationAlertHeaderKey;
extern "C" const CFStringRef kCFUserNotificationAlertMessageKey;
extern "C" void CFRelease(CFTypeRef);
extern "C" CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8*, CFIndex, unsigned, Boolean isExternal);
extern "C" CFIndex CFStringGetLength(CFStringRef);
extern "C" void CFStringGetCharacters(CFStringRef, CFRange, UniChar*);
extern "C" CFComparisonResult CFStringCompare(CFStringRef, CFStringRef, unsigned long options);
extern "C" CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8*, CFIndex, Boolean isDirectory);
extern "C" Boolean CFURLGetFileSystemRepresentation(CFURLRef, Boolean resolveAgainstBase, UInt8*, CFIndex);
extern "C" CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef);
extern "C" CFURLRef CFBundleCopyExecutableURL(CFBundleRef);
extern "C" CFURLRef CFBundleCopyResourceURL(CFBundleRef, CFStringRef name, CFStringRef type, CFStringRef folder);
extern "C" CFStringRef CFBundleCopyLocalizedString(CFBundleRef, CFStringRef key, CFStringRef value, CFStringRef table);
extern "C" CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values, CFIndex, const CFDictionaryKeyCallBacks*, const CFDictionaryValueCallBacks*);
extern "C" CFUserNotificationRef CFUserNotificationCreate(CFAllocatorRef, CFTimeInterval, unsigned long flags, SInt32* error, CFDictionaryRef);

// framework CoreGraphics
extern "C" CFDictionaryRef CGSessionCopyCurrentDictionary();

#ifdef __OBJC__
#include <objc/NSObject.h>

// framework Foundation
typedef unsigned short unichar;
typedef double NSTimeInterval;
struct NSRange { NSUInteger location; NSUInteger length; };
inline NSRange NSMakeRange(NSUInteger location, NSUInteger length) { return {location, length}; }
enum : NSUInteger { NSUTF8StringEncoding = 4 };
@class NSArray, NSDictionary, NSDate, NSError, NSURL;
extern "C" void NSLog(NSString* format, ...);
extern "C" NSString* const NSFileSystemSize;
extern "C" NSString* const NSFileSystemFreeSize;
extern "C" NSString* const NSURLVolumeIsReadOnlyKey;
extern "C" NSString* const NSURLVolumeIsRemovableKey;
@interface NSObject (NSThreadPerformAdditions)
- (void)performSelectorOnMainThread:(SEL)selector withObject:(id)argument waitUntilDone:(BOOL)wait;
@end
@interface NSString : NSObject
@property(readonly) NSUInteger length;
@property(readonly) const char* UTF8String;
- (instancetype)initWithBytes:(const void*)bytes length:(NSUInteger)length encoding:(NSUInteger)encoding;
- (void)getCharacters:(unichar*)buffer range:(NSRange)range;
+ (instancetype)stringWithCharacters:(const unichar*)characters length:(NSUInteger)length;
+ (instancetype)stringWithUTF8String:(const char*)bytes;
@end
@interface NSArray : NSObject
- (NSUInteger)countByEnumeratingWithState:(void*)state objects:(id __unsafe_unretained*)buffer count:(NSUInteger)length;
@property(readonly) NSUInteger count;
- (id)objectAtIndex:(NSUInteger)index;
+ (instancetype)array;
@end
@interface NSMutableArray : NSArray
- (void)addObject:(id)object;
@end
@interface NSDictionary : NSObject
- (id)objectForKey:(id)key;
@end
@interface NSNumber : NSObject
@property(readonly) long long longLongValue;
@end
@interface NSDate : NSObject
+ (instancetype)dateWithTimeIntervalSinceNow:(NSTimeInterval)seconds;
@end
__attribute__((__objc_exception__))
@interface NSException : NSObject
@property(readonly, copy) NSString* reason;
@end
@interface NSURL : NSObject
@property(readonly, copy) NSString* path;
+ (NSURL*)fileURLWithPath:(NSString*)path;
- (BOOL)getResourceValue:(out id*)value forKey:(NSString*)key error:(out NSError**)error;
@end
@interface NSBundle : NSObject
@property(class, readonly) NSBundle* mainBundle;
@property(readonly, copy) NSString* bundlePath;
@end
@interface NSThread : NSObject
@property(class, readonly) BOOL isMainThread;
@end
@interface NSCondition : NSObject
- (void)lock;
- (void)unlock;
- (void)wait;
- (BOOL)waitUntilDate:(NSDate*)limit;
- (void)signal;
@end
@interface NSFileManager : NSObject
@property(class, readonly) NSFileManager* defaultManager;
- (NSDictionary*)attributesOfFileSystemForPath:(NSString*)path error:(NSError**)error;
- (NSString*)displayNameAtPath:(NSString*)path;
@end

// framework AppKit
enum NSApplicationActivationPolicy : NSInteger { NSApplicationActivationPolicyAccessory = 1 };
@interface NSApplication : NSObject
@property(class, readonly) NSApplication* sharedApplication;
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)policy;
- (void)activateIgnoringOtherApps:(BOOL)ignore;
@end
extern "C" NSApplication* NSApp;
@interface NSOpenPanel : NSObject
+ (NSOpenPanel*)openPanel;
@property BOOL canChooseFiles, canChooseDirectories, allowsMultipleSelection;
@property(copy) NSString* prompt;
@property(readonly, copy) NSArray* URLs;
- (NSInteger)runModal;
@end
@interface NSWorkspace : NSObject
@property(class, readonly) NSWorkspace* sharedWorkspace;
- (BOOL)openURL:(NSURL*)url;
@end
#endif
