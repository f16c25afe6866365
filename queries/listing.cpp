// What lies directly in a folder: names and counts, hidden entries included, in the order of the file system.

#include "frame/external_call.h"
#include "frame/functions.h"
#include "frame/path_resolution.h"
#include "platform/file_manager.h"
#include "platform/unicode.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace {

using frame::ErrorCode;
using frame::ExternalCall;
using frame::ItemKind;
using frame::PathText;

// Shows the names of the folder's entries of one kind to `visit`.
template <typename Visit>
void forEachEntry(const ExternalCall& call, ItemKind kind, const char* whenUnreadable, Visit&& visit)
{
    call.requireCount(1);
    const PathText folder =
        frame::resolvePath(call.requiredText(0, ErrorCode::missingSource), ItemKind::folder, frame::folderCodes);
    const bool wantFolders = kind == ItemKind::folder;
    const platform::Outcome outcome =
        platform::listFolder(folder, [wantFolders, &visit](std::string_view name, bool isFolder) {
            if (isFolder == wantFolders) {
                visit(name);
            }
        });
    if (!outcome.ok()) {
        frame::fail(ErrorCode::unableToComplete, whenUnreadable);
    }
}

fmx::errcode names(const fmx::DataVect& arguments, fmx::Data& result, ItemKind kind, const char* whenUnreadable)
{
    return frame::externalFunction(arguments, result, [=](ExternalCall& call) {
        PathText list;
        forEachEntry(call, kind, whenUnreadable, [&list](std::string_view name) {
            if (!list.empty()) {
                list += u'\n';
            }
            platform::appendUtf16FromUtf8(list, name);
        });
        call.returnTextInLocaleOf(0, std::move(list));
    });
}

fmx::errcode count(const fmx::DataVect& arguments, fmx::Data& result, ItemKind kind, const char* whenUnreadable)
{
    return frame::externalFunction(arguments, result, [=](ExternalCall& call) {
        std::uint64_t entries = 0;
        forEachEntry(call, kind, whenUnreadable, [&entries](std::string_view) { ++entries; });
        call.returnNumber(static_cast<double>(entries));
    });
}

} // namespace

fmx::errcode KORB_GetFolders(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return names(arguments, result, ItemKind::folder, "Unable to get subfolders");
}

fmx::errcode KORB_GetFiles(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return names(arguments, result, ItemKind::file, "Unable to get files");
}

fmx::errcode KORB_GetNumSubfolders(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return count(arguments, result, ItemKind::folder, "Unable to get number of subfolders");
}

fmx::errcode KORB_GetNumFiles(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return count(arguments, result, ItemKind::file, "Unable to get number of files");
}
