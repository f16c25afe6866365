// Between the portable core's texts and Foundation's, for this folder's Objective-C++ files only.
//
// Objects that are returned are autoreleased.
#pragma once

#import <Foundation/Foundation.h>

#include "platform/path_text.h"

#include <string>

namespace platform::macos {

// Runs `call` with an autorelease pool of its own; `fallback` where a framework raises an exception, which a caller in
// C++ could not catch.
template <typename Answer, typename Call>
Answer guarded(Answer fallback, Call&& call)
{
    @autoreleasepool {
        @try {
            return call();
        } @catch (NSException*) {
            return fallback;
        }
    }
}

PathText unitsOf(NSString* string);

// UTF-8; "" for nil and for a string with a lone surrogate.
std::string utf8Of(NSString* string);

// nil when the path names nothing that can exist (a lone surrogate, a NUL), where Foundation would raise or cut.
NSString* pathFrom(PathView path);

} // namespace platform::macos
