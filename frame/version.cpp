#include "frame/external_call.h"
#include "frame/fmx_text.h"
#include "frame/functions.h"

#include <array>
#include <atomic>
#include <string>

namespace {

constexpr std::string_view longVersion = "Folidex 5.0.2.1";
constexpr std::string_view shortVersion = "5.0.2.1";

// The same in every build: solutions choose the POSIX path family by this word.
constexpr std::string_view platformName = "Mac OS X";

// What an unknown version type leaves behind. It isn't the last-error record, which stays clear.
std::atomic<const char*> lastErrorText{""};

std::string_view versionText(const std::u16string& type)
{
    struct Version {
        std::u16string_view type;
        std::string_view text;
    };
    static constexpr std::array versions{
        Version{u"LONG", longVersion},
        Version{u"", longVersion},
        Version{u"SHORT", shortVersion},
        Version{u"PLATFORM", platformName},
    };
    for (const Version& version : versions) {
        if (type == version.type) {
            return version.text;
        }
    }
    lastErrorText.store("invalid first parameter", std::memory_order_relaxed);
    return frame::errorResultText;
}

} // namespace

fmx::errcode KORB_Version(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](frame::ExternalCall& call) {
        std::string_view text = longVersion;
        if (call.count() == 1) {
            text = versionText(frame::uppercased(call.fmxText(0)));
        }
        call.returnUtf8(text);
    });
}
