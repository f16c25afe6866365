// A stand-in: README.md.
#pragma once

#include <stddef.h>
#include <stdint.h>

using Boolean = unsigned char;
using UInt8 = unsigned char;
using UInt32 = unsigned int;
using SInt32 = int;
using UniChar = unsigned short;
using CFIndex = signed long;
using CFOptionFlags = unsigned long;
using CFTimeInterval = double;
using CFStringEncoding = UInt32;
using CFTypeRef = const void*;
using CFAllocatorRef = const struct __CFAllocator*;
using CFStringRef = const struct __CFString*;
using CFURLRef = const struct __CFURL*;
using CFDictionaryRef = const struct __CFDictionary*;
using CFBundleRef = struct __CFBundle*;
using CFUserNotificationRef = struct __CFUserNotification*;

struct CFRange {
    CFIndex location;
    CFIndex length;
};

enum CFComparisonResult : CFIndex { kCFCompareLessThan = -1, kCFCompareEqualTo = 0, kCFCompareGreaterThan = 1 };

struct CFDictionaryKeyCallBacks;
struct CFDictionaryValueCallBacks;

enum : CFStringEncoding { kCFStringEncodingUTF8 = 0x08000100 };
enum { kCFUserNotificationPlainAlertLevel = 3 };

extern "C" {
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
extern const CFStringRef kCFUserNotificationAlertHeaderKey;
extern const CFStringRef kCFUserNotificationAlertMessageKey;

void CFRelease(CFTypeRef);

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8*, CFIndex, CFStringEncoding, Boolean isExternal);
CFIndex CFStringGetLength(CFStringRef);
void CFStringGetCharacters(CFStringRef, CFRange, UniChar*);
CFComparisonResult CFStringCompare(CFStringRef, CFStringRef, CFOptionFlags);

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8*, CFIndex, Boolean isDirectory);
CFURLRef CFURLCopyAbsoluteURL(CFURLRef);
CFStringRef CFURLGetString(CFURLRef);
Boolean CFURLGetFileSystemRepresentation(CFURLRef, Boolean resolveAgainstBase, UInt8*, CFIndex);

CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef);
CFURLRef CFBundleCopyExecutableURL(CFBundleRef);
CFURLRef CFBundleCopyResourceURL(CFBundleRef, CFStringRef name, CFStringRef type, CFStringRef folder);
CFStringRef CFBundleCopyLocalizedString(CFBundleRef, CFStringRef key, CFStringRef value, CFStringRef table);

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values, CFIndex,
                                   const CFDictionaryKeyCallBacks*, const CFDictionaryValueCallBacks*);
CFUserNotificationRef CFUserNotificationCreate(CFAllocatorRef, CFTimeInterval, CFOptionFlags, SInt32* error,
                                               CFDictionaryRef);
}

inline CFRange CFRangeMake(CFIndex location, CFIndex length)
{
    return {location, length};
}
