// Core Foundation, and nothing of Objective-C: the plug-in's own bundle, the plain alert and the user's session.

#include "platform/desktop.h"
#include "platform/macos/gui_session.h"
#include "platform/resources.h"

#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>

#include <array>
#include <climits>
#include <string>
#include <type_traits>
#include <utility>

namespace platform {

namespace {

// Releases what a function with Create or Copy in its name gave.
struct Release {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};

template <typename Ref>
using Owned = std::unique_ptr<std::remove_pointer_t<Ref>, Release>;

Owned<CFStringRef> makeString(std::string_view utf8)
{
    return Owned<CFStringRef>(CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(utf8.data()),
                                                      static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false));
}

CFBundleRef bundleOf(Bundle bundle)
{
    return static_cast<CFBundleRef>(bundle.reference);
}

std::u16string unitsOf(CFStringRef string)
{
    std::u16string units(static_cast<std::size_t>(CFStringGetLength(string)), u'\0');
    CFStringGetCharacters(string, CFRangeMake(0, CFStringGetLength(string)), reinterpret_cast<UniChar*>(units.data()));
    return units;
}

} // namespace

std::optional<std::u16string> localizedString(Bundle bundle, std::string_view table, std::string_view key)
{
    const auto name = makeString(key);
    const auto tableName = makeString(table);
    if (bundle.reference == nullptr || !name || !tableName) {
        return std::nullopt;
    }
    const Owned<CFStringRef> value(
        CFBundleCopyLocalizedString(bundleOf(bundle), name.get(), name.get(), tableName.get()));
    // The key itself comes back when the table doesn't have it.
    if (!value || CFStringCompare(value.get(), name.get(), 0) == kCFCompareEqualTo) {
        return std::nullopt;
    }
    return unitsOf(value.get());
}

std::optional<ResourceFile> resourceFile(Bundle bundle, std::string_view name, std::string_view type)
{
    const auto resourceName = makeString(name);
    const auto resourceType = makeString(type);
    if (bundle.reference == nullptr || !resourceName || !resourceType) {
        return std::nullopt;
    }
    const Owned<CFURLRef> url(
        CFBundleCopyResourceURL(bundleOf(bundle), resourceName.get(), resourceType.get(), nullptr));
    std::array<UInt8, PATH_MAX> path{};
    if (!url || !CFURLGetFileSystemRepresentation(url.get(), false, path.data(), path.size())) {
        return std::nullopt;
    }
    return ResourceFile{reinterpret_cast<const char*>(path.data()), nullptr};
}

// Null outside of a user's Quartz session (CGSession.h).
bool macos::hasGuiSession()
{
    return Owned<CFDictionaryRef>(CGSessionCopyCurrentDictionary()) != nullptr;
}

bool showAlert(std::string_view header, std::string_view message)
{
    const auto headerText = makeString(header);
    const auto messageText = makeString(message);
    if (!headerText || !messageText || !macos::hasGuiSession()) {
        return false;
    }
    const std::array<const void*, 2> keys{kCFUserNotificationAlertHeaderKey, kCFUserNotificationAlertMessageKey};
    const std::array<const void*, 2> values{headerText.get(), messageText.get()};
    const Owned<CFDictionaryRef> texts(CFDictionaryCreate(
        nullptr, const_cast<const void**>(keys.data()), const_cast<const void**>(values.data()),
        static_cast<CFIndex>(keys.size()), &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    SInt32 error = 0;
    constexpr CFTimeInterval noTimeout = 0;
    const Owned<CFUserNotificationRef> notification(
        CFUserNotificationCreate(nullptr, noTimeout, kCFUserNotificationPlainAlertLevel, &error, texts.get()));
    return notification != nullptr && error == 0;
}

} // namespace platform
