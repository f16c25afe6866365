// Sizes, dates and existence of files and folders. The file and the folder functions differ in the kind of item that
// they accept and in what they report, and share everything else.

#include "frame/external_call.h"
#include "frame/functions.h"
#include "frame/path_resolution.h"
#include "platform/calendar.h"
#include "platform/file_manager.h"
#include "platform/resources.h"

#include <cstdint>
#include <optional>

namespace {

using frame::ErrorCode;
using frame::ExternalCall;
using frame::ItemKind;
using frame::PathText;
using platform::Attributes;
using platform::Existence;
using platform::UnixTime;

struct Family {
    ItemKind kind;
    frame::ResolutionCodes codes;
    const char* noDate; // of any of the three dates
};

constexpr Family files{ItemKind::file, frame::fileCodes, "Unable to determine file creation date"};
constexpr Family folders{ItemKind::folder, frame::folderCodes, "Unable to determine folder creation date"};

PathText itemPath(const ExternalCall& call, const Family& family)
{
    call.requireCount(1);
    return frame::resolvePath(call.requiredText(0, ErrorCode::missingSource), family.kind, family.codes);
}

void returnSize(ExternalCall& call, std::uint64_t bytes, const char* whenZero)
{
    if (bytes == 0) {
        frame::fail(ErrorCode::unableToComplete, whenZero);
    }
    call.returnNumber(static_cast<double>(bytes));
}

// FileMaker's dates go from the year 1 to the year 4000.
void returnDate(ExternalCall& call, UnixTime time, const Family& family)
{
    constexpr int firstYear = 1;
    constexpr int lastYear = 4000;
    const platform::LocalDateTime date = platform::localDateTime(time);
    if (date.year < firstYear || date.year > lastYear) {
        frame::fail(ErrorCode::unableToComplete, family.noDate);
    }
    call.returnTimestamp(date);
}

fmx::errcode attributeDate(const fmx::DataVect& arguments, fmx::Data& result, const Family& family,
                           std::optional<UnixTime> Attributes::*date)
{
    return frame::externalFunction(arguments, result, [&](ExternalCall& call) {
        const Attributes attributes = platform::attributes(itemPath(call, family)).value_or(Attributes());
        if (!(attributes.*date)) {
            frame::fail(ErrorCode::unableToComplete, family.noDate);
        }
        returnDate(call, *(attributes.*date), family);
    });
}

fmx::errcode accessDate(const fmx::DataVect& arguments, fmx::Data& result, const Family& family)
{
    return frame::externalFunction(arguments, result, [&](ExternalCall& call) {
        returnDate(call, platform::accessTime(itemPath(call, family)), family);
    });
}

struct BothForms {
    Existence asTyped;
    Existence onVolume; // under "/Volumes/"
};

BothForms bothForms(const ExternalCall& call)
{
    call.requireCount(1);
    const PathText typed = call.requiredText(0, ErrorCode::missingSource);
    return {platform::existence(typed), platform::existence(PathText(frame::volumePrefix).append(typed))};
}

bool isFile(const Existence& item)
{
    return item.exists && !item.isFolder;
}

// Callers test for 0.
constexpr double present = 0;
constexpr double absent = 1;

} // namespace

fmx::errcode KORB_GetFileSize(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](ExternalCall& call) {
        const Attributes attributes = platform::attributes(itemPath(call, files)).value_or(Attributes());
        returnSize(call, attributes.size, "Unable to determine file size");
    });
}

fmx::errcode KORB_GetFolderSize(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](ExternalCall& call) {
        std::uint64_t bytes = 0;
        frame::orFail(ErrorCode::unableToComplete, platform::sumFolderSizes(itemPath(call, folders), bytes));
        returnSize(call, bytes, "Unable to get folder size");
    });
}

fmx::errcode KORB_GetFileCreationDate(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return attributeDate(arguments, result, files, &Attributes::creationDate);
}

fmx::errcode KORB_GetFolderCreationDate(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return attributeDate(arguments, result, folders, &Attributes::creationDate);
}

fmx::errcode KORB_GetFileModificationDate(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return attributeDate(arguments, result, files, &Attributes::modificationDate);
}

fmx::errcode KORB_GetFolderModificationDate(short, const fmx::ExprEnv&, const fmx::DataVect& arguments,
                                            fmx::Data& result)
{
    return attributeDate(arguments, result, folders, &Attributes::modificationDate);
}

fmx::errcode KORB_GetFileAccessDate(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return accessDate(arguments, result, files);
}

fmx::errcode KORB_GetFolderAccessDate(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return accessDate(arguments, result, folders);
}

fmx::errcode KORB_GetFileExists(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](ExternalCall& call) {
        const BothForms item = bothForms(call);
        if (isFile(item.asTyped) || isFile(item.onVolume)) {
            return call.returnNumber(present);
        }
        // A folder that exists under "/Volumes/" alone counts as nothing.
        if (item.asTyped.isFolder) {
            frame::fail(ErrorCode::sourceNotAFile);
        }
        call.returnNumber(absent);
    });
}

fmx::errcode KORB_GetFolderExists(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](ExternalCall& call) {
        const BothForms item = bothForms(call);
        if (item.asTyped.isFolder || item.onVolume.isFolder) {
            return call.returnNumber(present);
        }
        if (item.asTyped.exists || item.onVolume.exists) {
            frame::fail(ErrorCode::sourceNotAFolder);
        }
        call.returnNumber(absent);
    });
}

fmx::errcode KORB_GetFileMakerPath(short, const fmx::ExprEnv&, const fmx::DataVect& arguments, fmx::Data& result)
{
    return frame::externalFunction(arguments, result, [](ExternalCall& call) {
        call.requireCount(0);
        call.returnUtf8(platform::hostApplicationPath());
    });
}
