#import "platform/macos/cocoa_text.h"

#include "platform/unicode.h"

namespace platform::macos {

// Foundation's unichar is unsigned short, the language's is char16_t: both are the same 16 bits.
static_assert(sizeof(unichar) == sizeof(char16_t));

PathText unitsOf(NSString* string)
{
    PathText units([string length], u'\0');
    if (!units.empty()) {
        [string getCharacters:reinterpret_cast<unichar*>(units.data()) range:NSMakeRange(0, units.size())];
    }
    return units;
}

std::string utf8Of(NSString* string)
{
    const char* bytes = [string UTF8String];
    return bytes == nullptr ? std::string() : std::string(bytes);
}

NSString* pathFrom(PathView path)
{
    return fileSystemRepresentation(path)
               ? [NSString stringWithCharacters:reinterpret_cast<const unichar*>(path.data()) length:path.size()]
               : nil;
}

} // namespace platform::macos
