// A plug-in for the host's tests. The variable SAMPLE says how it behaves as it is loaded:
//   foreign   it registers under another ID than its options say, which say nothing
//   passive   it wants no start-up message
//   refusing  it refuses to start
//   throwing  it throws at the start-up message, after having registered its functions
#include <FMWrapper.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

FMX_ExternCallPtr gFMX_ExternCallPtr = nullptr;

namespace {

const std::string variant = std::getenv("SAMPLE") != nullptr ? std::getenv("SAMPLE") : "";

using fmx::Data;
using fmx::DataVect;
using fmx::errcode;
using fmx::ExprEnv;

void setText(Data& result, std::u16string_view text)
{
    const fmx::TextUniquePtr value;
    value->AssignUnicodeWithLength(reinterpret_cast<const fmx::uint16*>(text.data()),
                                   static_cast<fmx::uint32>(text.size()));
    const fmx::LocaleUniquePtr locale;
    result.SetAsText(*value, *locale);
}

errcode echo(short, const ExprEnv&, const DataVect& arguments, Data& result)
{
    const fmx::LocaleUniquePtr locale;
    result.SetAsText(arguments.AtAsText(0), *locale);
    return 0;
}

errcode count(short, const ExprEnv&, const DataVect& arguments, Data& result)
{
    const fmx::FixPtUniquePtr number(static_cast<fmx::int32>(arguments.Size()));
    result.SetAsNumber(*number);
    return 0;
}

// Throws what its argument names.
errcode fail(short, const ExprEnv&, const DataVect& arguments, Data& result)
{
    switch (arguments.AtAsNumber(0).AsLong()) {
    case 1:
        throw std::runtime_error("broken on purpose");
    case 2:
        throw std::bad_alloc();
    case 3:
        throw 42;
    default:
        setText(result, u"unharmed");
        return 0;
    }
}

errcode errorCode(short, const ExprEnv&, const DataVect& arguments, Data& result)
{
    setText(result, u"left behind");
    return static_cast<errcode>(arguments.AtAsNumber(0).AsLong());
}

errcode pause(short, const ExprEnv&, const DataVect& arguments, Data&)
{
    std::this_thread::sleep_for(std::chrono::duration<double>(arguments.AtAsNumber(0).AsFloat()));
    return 0;
}

errcode moment(short, const ExprEnv&, const DataVect&, Data& result)
{
    const fmx::DateTimeUniquePtr time;
    time->SetNormalizedDate(2, 29, 2024);
    time->SetNormalizedTime(13, 5, 9);
    result.SetAsTimeStamp(*time);
    return 0;
}

// As many UTF-16 units as the argument says.
errcode longText(short, const ExprEnv&, const DataVect& arguments, Data& result)
{
    setText(result, std::u16string(static_cast<std::size_t>(arguments.AtAsNumber(0).AsLong64()), u'é'));
    return 0;
}

struct Row {
    short id;
    const char16_t* name;
    short minimum;
    short maximum;
    fmx::ExtPluginType handler;
};

constexpr short keptId = 99;
constexpr std::array<Row, 8> rows{{{1, u"Smpl_Echo", 1, 1, echo},
                                   {2, u"Smpl_Count", 0, -1, count},
                                   {3, u"Smpl_Fail", 1, 1, fail},
                                   {4, u"Smpl_ErrorCode", 1, 1, errorCode},
                                   {5, u"Smpl_Pause", 1, 1, pause},
                                   {6, u"Smpl_Moment", 0, 0, moment},
                                   {7, u"Smpl_LongText", 1, 1, longText},
                                   {keptId, u"Smpl_Größe", 0, 0, count}}};

fmx::QuadCharUniquePtr registeredId()
{
    return variant == "foreign" ? fmx::QuadCharUniquePtr('O', 'T', 'H', 'R')
                                : fmx::QuadCharUniquePtr('S', 'M', 'P', 'L');
}

void registerAll()
{
    for (const Row& row : rows) {
        const fmx::TextUniquePtr name;
        name->AssignUnicode(reinterpret_cast<const fmx::uint16*>(row.name));
        ExprEnv::RegisterExternalFunctionEx(*registeredId(), row.id, *name, *name, *name, row.minimum, row.maximum,
                                            0xFF01, row.handler);
    }
    const fmx::TextUniquePtr step;
    step->Assign("Step");
    ExprEnv::RegisterScriptStep(*registeredId(), 1, *step, *step, *step, 0xFF01, echo);
}

// Leaves the last function and the script step registered.
void unregisterSome()
{
    const fmx::QuadCharUniquePtr id('S', 'M', 'P', 'L');
    for (const Row& row : rows) {
        if (row.id != keptId) {
            ExprEnv::UnRegisterExternalFunction(*id, row.id);
        }
    }
}

void answerString(FMX_ExternCallStruct& record)
{
    std::u16string_view text = u"Sample";
    if (record.parm1 == kFMXT_OptionsStr) {
        text = variant == "foreign" ? u"" : variant == "passive" ? u"SMPL1nnnnnn" : u"SMPL1nnYnnn";
    }
    auto* buffer = reinterpret_cast<fmx::unichar16*>(record.result); // NOLINT(performance-no-int-to-ptr): the interface
    const std::size_t length = record.parm3 > text.size() ? text.size() : 0;
    std::copy_n(text.begin(), length, buffer);
    buffer[length] = 0;
}

} // namespace

extern "C" FMX_API void FMExternCallProc(FMX_ExternCallPtr record)
{
    gFMX_ExternCallPtr = record;
    switch (record->whichCall) {
    case kFMXT_Init:
        registerAll();
        if (variant == "throwing") {
            throw std::runtime_error("no start today");
        }
        record->result = static_cast<FMX_PtrType>(variant == "refusing" ? -2 : 62);
        break;
    case kFMXT_Shutdown:
        unregisterSome();
        break;
    case kFMXT_GetString:
        answerString(*record);
        break;
    default:
        break;
    }
}
