// The local volumes and how large they are.

#include "frame/external_call.h"
#include "frame/functions.h"
#include "frame/path_resolution.h"
#include "platform/volumes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace {

using frame::ErrorCode;
using frame::ExternalCall;
using frame::PathText;
using platform::VolumeSpace;

// A drive is any existing path, as typed or under "/Volumes/": what counts is the volume that holds it.
fmx::errcode driveBytes(const fmx::DataVect& arguments, fmx::Data& result, std::int64_t (*bytes)(const VolumeSpace&))
{
    return frame::externalFunction(arguments, result, [bytes](ExternalCall& call) {
        call.requireCount(1);
        const PathText drive =
            frame::resolveAny(call.requiredText(0, ErrorCode::missingDriveName), ErrorCode::driveNotFound);
        const std::optional<VolumeSpace> space = platform::volumeSpace(drive);
        if (!space) {
            frame::fail(ErrorCode::unableToComplete, "Unable to get Drive Size");
        }
        call.returnNumber(static_cast<double>(bytes(*space)));
    });
}

} // namespace

fmx::errcode KORB_GetDrives(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](ExternalCall& call) {
        call.requireCount(0);
        const std::optional<std::vector<std::u16string>> names = platform::mountedLocalVolumeNames();
        if (!names) {
            frame::fail(ErrorCode::unableToComplete, "Unable to determine drives");
        }
        PathText list;
        const char16_t* separator = u"";
        for (const std::u16string& name : *names) {
            list.append(separator).append(name);
            separator = u"\n";
        }
        call.returnText(list);
    });
}

fmx::errcode KORB_GetDriveSize(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return driveBytes(arguments, result, [](const VolumeSpace& space) { return space.total; });
}

fmx::errcode KORB_GetDriveSizeFree(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return driveBytes(arguments, result, [](const VolumeSpace& space) { return space.free; });
}

fmx::errcode KORB_GetDriveSizeUsed(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return driveBytes(arguments, result, [](const VolumeSpace& space) { return space.total - space.free; });
}
