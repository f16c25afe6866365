#include "frame/path_resolution.h"

#include "frame/external_call.h"
#include "platform/file_manager.h"

#include <string>

namespace frame {

using platform::Existence;
using platform::PathText;
using platform::PathView;

namespace {

PathText underVolumes(PathView typed)
{
    return PathText(volumePrefix).append(typed);
}

} // namespace

PathText resolvePath(PathView typed, ItemKind kind, ResolutionCodes codes)
{
    PathText prefixed = underVolumes(typed);
    const Existence asTyped = platform::existence(typed);
    const Existence onVolume = platform::existence(prefixed);
    if (!asTyped.exists && onVolume.exists) {
        return prefixed;
    }
    if (!asTyped.exists) {
        fail(codes.notFound);
    }
    const bool wantFolder = kind == ItemKind::folder;
    if (asTyped.isFolder != wantFolder || (onVolume.exists && onVolume.isFolder != wantFolder)) {
        fail(codes.wrongKind);
    }
    return PathText(typed);
}

PathText resolveForDeletion(PathView typed, ItemKind kind, ResolutionCodes codes)
{
    PathText path = resolvePath(typed, kind, codes);
    const Existence item = platform::existence(path);
    if (!item.exists) {
        fail(codes.notFound);
    }
    if (item.isFolder != (kind == ItemKind::folder)) {
        fail(codes.wrongKind);
    }
    return path;
}

PathText resolveAny(PathView typed, ErrorCode notFound)
{
    if (platform::existence(typed).exists) {
        return PathText(typed);
    }
    PathText prefixed = underVolumes(typed);
    if (!platform::existence(prefixed).exists) {
        fail(notFound);
    }
    return prefixed;
}

} // namespace frame
