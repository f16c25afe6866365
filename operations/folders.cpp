// Creating, copying, moving, renaming and deleting one folder. The destination of a copy or a move is the folder that
// is to hold the source.

#include "frame/external_call.h"
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

PathText sourceFolder(const ExternalCall& call)
{
    return frame::resolvePath(call.requiredText(0, ErrorCode::missingSource), ItemKind::folder, frame::folderCodes);
}

PathText destinationFolder(const ExternalCall& call, frame::ResolutionCodes codes)
{
    return frame::resolvePath(call.requiredText(1, ErrorCode::missingDestination), ItemKind::folder, codes);
}

void requireNothingAt(PathView path)
{
    if (platform::existence(path).exists) {
        frame::fail(ErrorCode::folderExists);
    }
}

void requireDifferent(const PathText& source, const PathText& destination)
{
    if (source == destination) {
        frame::fail(ErrorCode::sourceIsDestination);
    }
}

} // namespace

fmx::errcode KORB_FolderCreate(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](ExternalCall& call) {
        call.requireCount(1);
        PathText path = call.requiredText(0, ErrorCode::missingSource);
        const PathText onVolume = PathText(frame::volumePrefix) + path;
        requireNothingAt(path);
        requireNothingAt(onVolume);
        if (path.find(frame::volumePrefix) == PathText::npos && !path.starts_with(u'/')) {
            path = onVolume;
        }
        frame::orFail(ErrorCode::unableToComplete, platform::createFolder(path));
        call.returnNumber(0);
    });
}

fmx::errcode KORB_FolderCopy(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](ExternalCall& call) {
        call.requireCount(2);
        const PathText source = sourceFolder(call);
        const PathText destination = destinationFolder(call, frame::destinationFolderCodes);
        const PathText target = destination + u'/' + platform::lastComponent(source);
        requireNothingAt(target);
        requireDifferent(source, destination);
        // The one failure here that deliberately leaves out the system's description.
        if (!platform::copyItem(source, target).ok()) {
            frame::fail(ErrorCode::unableToCopy);
        }
        call.returnNumber(0);
    });
}

fmx::errcode KORB_FolderMove(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](ExternalCall& call) {
        call.requireCount(2);
        const PathText source = sourceFolder(call);
        // A move reports a source's codes for its destination, too.
        const PathText destination = destinationFolder(call, frame::folderCodes);
        const PathText target = platform::appendingComponent(destination, platform::lastComponent(source));
        requireNothingAt(target);
        requireDifferent(source, destination);
        frame::orFail(ErrorCode::unableToMove, platform::moveItem(source, target));
        call.returnNumber(0);
    });
}

fmx::errcode KORB_FolderRename(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](ExternalCall& call) {
        call.requireCount(2);
        const PathText source = sourceFolder(call);
        const PathText name = call.text(1);
        if (name.empty()) {
            frame::fail(ErrorCode::folderExists); // the target would be the folder that holds the source
        }
        const PathText target = platform::appendingComponent(platform::deletingLastComponent(source), name);
        requireNothingAt(target);
        frame::orFail(ErrorCode::unableToRename, platform::moveItem(source, target));
        call.returnNumber(0);
    });
}

fmx::errcode KORB_FolderDelete(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](ExternalCall& call) {
        call.requireCount(1);
        const PathText path = frame::resolveForDeletion(call.requiredText(0, ErrorCode::missingSource),
                                                        ItemKind::folder, frame::folderCodes);
        frame::orFail(ErrorCode::unableToDelete, platform::removeItem(path));
        call.returnNumber(0);
    });
}
