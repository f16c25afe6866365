// Copying, moving, renaming and deleting one file. Copy and move differ in how the target's path is put together and in
// the call that does the work; a failed move reports a copy's code.

#include "frame/external_call.h"
#include "frame/fmx_text.h"
#include "frame/functions.h"
#include "frame/path_resolution.h"
#include "platform/file_manager.h"
#include "platform/path_text.h"

namespace {

using frame::ErrorCode;
using frame::ExternalCall;
using frame::ItemKind;
using frame::PathText;
using frame::PathView;
using platform::Existing;
using platform::Outcome;

PathText sourceFile(const ExternalCall& call)
{
    return frame::resolvePath(call.requiredText(0, ErrorCode::missingSource), ItemKind::file, frame::fileCodes);
}

// Whether an overwrite argument asks for overwriting: only "Y" or "y" does, alone. "Yes", "1" and "true" don't.
bool ShouldOverwrite(const fmx::Text& argument)
{
    return frame::uppercased(argument) == u"Y";
}

struct Transfer {
    PathText (*targetPath)(const PathText& folder, PathView name);
    Outcome (*transferItem)(PathView source, PathView target, Existing existing);
};

constexpr Transfer copying{[](const PathText& folder, PathView name) { return (folder + u'/').append(name); },
                           platform::copyItem};
constexpr Transfer moving{
    [](const PathText& folder, PathView name) { return platform::appendingComponent(folder + u'/', name); },
    platform::moveItem};

// What is to become of an item at the target.
Existing existingItem(PathView source, PathView folder, PathView target, bool overwrite)
{
    if (!platform::existence(target).exists) {
        return Existing::refused; // whatever turns up there later is somebody else's
    }
    if (!overwrite) {
        frame::fail(ErrorCode::fileExists);
    }
    if (platform::removalTakesAway(target, source)) {
        frame::fail(ErrorCode::unableToCopy, "removing the existing item would remove the source");
    }
    if (platform::removalTakesAway(target, folder)) {
        frame::fail(ErrorCode::unableToCopy, "removing the existing item would remove the destination folder");
    }
    return Existing::replaced;
}

fmx::errcode transferFile(const fmx::DataVect& arguments, fmx::Data& result, const Transfer& transfer)
{
    return frame::externalFunction(arguments, result, [&](ExternalCall& call) {
        call.requireAtLeast(2);
        const PathText source = sourceFile(call);
        const PathText folder = frame::resolvePath(call.requiredText(1, ErrorCode::missingDestination),
                                                   ItemKind::folder, frame::destinationFolderCodes);
        const bool overwrite = call.count() >= 3 && ShouldOverwrite(call.fmxText(2));
        PathText name = call.count() >= 4 ? call.text(3) : PathText();
        if (name.empty()) {
            name = platform::lastComponent(source);
        }
        const PathText target = transfer.targetPath(folder, name);
        if (source == target) {
            frame::fail(ErrorCode::sourceIsDestination);
        }
        const Existing existing = existingItem(source, folder, target, overwrite);
        frame::orFail(ErrorCode::unableToCopy, transfer.transferItem(source, target, existing));
        call.returnNumber(0);
    });
}

} // namespace

fmx::errcode KORB_FileCopy(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return transferFile(arguments, result, copying);
}

fmx::errcode KORB_FileMove(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return transferFile(arguments, result, moving);
}

fmx::errcode KORB_FileRename(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](ExternalCall& call) {
        call.requireCount(2);
        const PathText source = sourceFile(call);
        const PathText name = call.requiredText(1, ErrorCode::missingDestinationName);
        const PathText target = platform::appendingComponent(platform::deletingLastComponent(source), name);
        if (platform::existence(target).exists) {
            frame::fail(ErrorCode::fileExists);
        }
        if (!platform::moveItem(source, target).ok()) {
            frame::fail(ErrorCode::unableToMove);
        }
        call.returnNumber(0);
    });
}

fmx::errcode KORB_FileDelete(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](ExternalCall& call) {
        call.requireCount(1);
        const PathText path =
            frame::resolveForDeletion(call.requiredText(0, ErrorCode::missingSource), ItemKind::file, frame::fileCodes);
        frame::orFail(ErrorCode::unableToDelete, platform::removeItem(path));
        call.returnNumber(0);
    });
}
