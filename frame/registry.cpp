#include "frame/registry.h"

#include "frame/call_record.h"
#include "frame/functions.h"
#include "frame/strings.h"

#include <array>
#include <string>

namespace frame {

namespace {

// Shown in all of FileMaker's dialogs (0xFF00), and evaluated on FileMaker Server too (0x0001).
constexpr fmx::uint32 flags = 0xFF01;

// The first host API versions that take a description with a function, and that know script steps.
constexpr int descriptionsSince = 56;
constexpr int scriptStepsSince = 57;

constexpr short descriptionOffset = 200;

fmx::QuadCharUniquePtr pluginId()
{
    return {'K', 'O', 'R', 'B'};
}

fmx::TextUniquePtr descriptionOf(const Function& function)
{
    return loadText(static_cast<short>(function.stringNumber + descriptionOffset), Extent::whole);
}

// Returns the code of the last registration call: 0, or what FileMaker refuses with.
fmx::errcode registerFunction(const Function& function)
{
    const auto id = pluginId();
    const auto name = loadText(function.stringNumber, Extent::bareName);
    const auto prototype = loadText(function.stringNumber, Extent::whole);
    fmx::errcode code = 0;
    if (hostApiVersion() >= descriptionsSince) {
        code = fmx::ExprEnv::RegisterExternalFunctionEx(*id, function.id, *name, *prototype, *descriptionOf(function),
                                                        function.minimum, function.maximum, flags, function.handler);
    } else {
        code = fmx::ExprEnv::RegisterExternalFunction(*id, function.id, *name, *prototype, function.minimum,
                                                      function.maximum, flags, function.handler);
    }
    if (hostApiVersion() >= scriptStepsSince) {
        const fmx::TextUniquePtr definition;
        definition->Assign(stepDefinition(function.parameters).c_str(), fmx::Text::kEncoding_UTF8);
        code = fmx::ExprEnv::RegisterScriptStep(*id, function.id, *name, *definition, *descriptionOf(function), flags,
                                                function.handler);
    }
    return code;
}

template <typename Action>
void forEachUnregisteredId(Action&& action)
{
    struct Range {
        short first;
        short last;
    };
    for (const Range range : {Range{1, 39}, Range{150, 200}}) {
        for (short id = range.first; id <= range.last; ++id) {
            action(id);
        }
    }
}

} // namespace

std::span<const Function> functionTable()
{
    static const std::array table{
        Function{150, 1, 0, 1, KORB_Version, steps::versionType},
        Function{152, 2, 2, 4, KORB_FileCopy, steps::sourceDestinationOverwriteName},
        Function{153, 3, 2, 4, KORB_FileMove, steps::sourceDestinationOverwriteName},
        Function{154, 4, 2, 2, KORB_FileRename, steps::sourceAndFileName},
        Function{155, 5, 1, 1, KORB_FileDelete, steps::source},
        Function{156, 6, 1, 1, KORB_GetFileSize, steps::source},
        Function{157, 7, 1, 1, KORB_GetFileCreationDate, steps::source},
        Function{158, 8, 1, 1, KORB_GetFileModificationDate, steps::source},
        Function{159, 9, 1, 1, KORB_GetFileAccessDate, steps::source},
        Function{160, 10, 1, 1, KORB_GetFileExists, steps::source},
        Function{161, 11, 0, 0, KORB_GetFileMakerPath, steps::none},
        Function{162, 12, 1, 1, KORB_FolderCreate, steps::source},
        Function{163, 13, 2, 2, KORB_FolderCopy, steps::sourceDestination},
        Function{164, 14, 2, 2, KORB_FolderMove, steps::sourceDestination},
        Function{165, 15, 2, 2, KORB_FolderRename, steps::sourceAndFolderName},
        Function{166, 16, 1, 1, KORB_FolderDelete, steps::source},
        Function{167, 17, 1, 1, KORB_GetFolderSize, steps::source},
        Function{168, 18, 1, 1, KORB_GetFolderCreationDate, steps::source},
        Function{169, 19, 1, 1, KORB_GetFolderModificationDate, steps::source},
        Function{170, 20, 1, 1, KORB_GetFolderAccessDate, steps::source},
        Function{171, 21, 1, 1, KORB_GetFolderExists, steps::source},
        Function{172, 22, 0, 0, KORB_GetDrives, steps::none},
        Function{173, 23, 1, 1, KORB_GetFolders, steps::source},
        Function{174, 24, 1, 1, KORB_GetFiles, steps::source},
        Function{175, 25, 1, 1, KORB_GetNumSubfolders, steps::source},
        Function{176, 26, 1, 1, KORB_GetNumFiles, steps::source},
        Function{177, 27, 1, 1, KORB_GetDriveSize, steps::source},
        Function{178, 28, 1, 1, KORB_GetFilePath, steps::startingPath},
        Function{179, 29, 1, 1, KORB_GetFolderPath, steps::startingPath},
        Function{182, 32, 3, 3, KORB_EncryptFile, steps::sourceDestinationPassword},
        Function{183, 33, 3, 3, KORB_DecryptFile, steps::sourceDestinationPassword},
        Function{184, 34, 2, 2, KORB_CompressFile, steps::sourceDestination},
        Function{185, 35, 2, 2, KORB_ExpandFile, steps::sourceDestination},
        Function{186, 36, 3, 3, KORB_CompressAndEncrypt, steps::sourceDestinationPassword},
        Function{187, 37, 3, 3, KORB_DecryptAndExpand, steps::sourceDestinationPassword},
        Function{189, 189, 0, 1, KORB_GetLastError, steps::errorType},
        Function{190, 190, 1, 1, KORB_GetDriveSizeFree, steps::source},
        Function{191, 191, 1, 1, KORB_GetDriveSizeUsed, steps::source},
        Function{194, 194, 1, 1, KORB_OpenFile, steps::undefined},
        Function{200, 200, 1, 2, KORB_LogSet, steps::undefined},
        Function{201, 201, 0, 0, KORB_LogClear, steps::undefined},
    };
    return table;
}

void registerAll()
{
    for (const Function& function : functionTable()) {
        registerFunction(function);
    }
}

void unregisterAll()
{
    const auto id = pluginId();
    forEachUnregisteredId([&](short number) { fmx::ExprEnv::UnRegisterExternalFunction(*id, number); });
    if (hostApiVersion() >= scriptStepsSince) {
        forEachUnregisteredId([&](short number) { fmx::ExprEnv::UnRegisterScriptStep(*id, number); });
    }
}

} // namespace frame
