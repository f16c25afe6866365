// The binary interface: the library has every entry point, each reports through its error slot and does nothing else
// then, and the record is laid out as plug-ins were compiled for it.
#include "values.h"

#include <fmxkit/failure.h>
#include <fmxkit/registry.h>

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <tuple>
#include <type_traits>
#include <typeinfo>

namespace {

using fmx::Text;
using fmxtest::units;

// Something to call any entry point with.
struct Arguments {
    std::tuple<std::unique_ptr<fmx::QuadChar>, std::unique_ptr<fmx::Locale>, std::unique_ptr<fmx::Text>,
               std::unique_ptr<fmx::FixPt>, std::unique_ptr<fmx::DateTime>, std::unique_ptr<fmx::Data>,
               std::unique_ptr<fmx::DataVect>>
        values{fmx::QuadCharUniquePtr('F', 'A', 'I', 'L'),
               fmx::LocaleUniquePtr(),
               fmxtest::text(u"text"),
               fmx::FixPtUniquePtr(5),
               fmx::DateTimeUniquePtr(),
               fmxtest::textData("1/2/2003"),
               fmx::DataVectUniquePtr()};
    std::tuple<char[8], wchar_t[8], fmx::uint16[8]> buffers{};
    fmx::_fmxcpt slot;

    Arguments() { get<fmx::DataVect&>().PushBack(get<fmx::Data&>()); }

    template <typename Parameter>
    Parameter get()
    {
        using Type = std::remove_cv_t<std::remove_pointer_t<std::remove_cvref_t<Parameter>>>;
        if constexpr (std::is_same_v<Type, fmx::_fmxcpt>) {
            return slot;
        } else if constexpr (std::is_function_v<Type>) {
            return [](short, const fmx::ExprEnv&, const fmx::DataVect&, fmx::Data&) { return fmx::errcode(); };
        } else if constexpr (std::is_reference_v<Parameter>) {
            return *std::get<std::unique_ptr<Type>>(values);
        } else if constexpr (std::is_class_v<Type>) {
            return std::get<std::unique_ptr<Type>>(values).get();
        } else if constexpr (std::is_pointer_v<Parameter>) {
            return std::get<Type[8]>(buffers);
        } else {
            return Parameter{1};
        }
    }
};

// Whether the result was a zero of its kind, or nothing.
template <typename Result, typename... Parameters>
bool answersZero(Result (*entryPoint)(Parameters...), Arguments& arguments)
{
    if constexpr (std::is_void_v<Result>) {
        entryPoint(arguments.get<Parameters>()...);
        return true;
    } else {
        return entryPoint(arguments.get<Parameters>()...) == Result();
    }
}

struct EntryPoint {
    const char* name;
    bool (*call)(Arguments&);
};
#define ENTRY(name)                                                                                                    \
    EntryPoint                                                                                                         \
    {                                                                                                                  \
#name, [](Arguments & arguments) { return answersZero(&fmx::FM_##name, arguments); }                           \
    }
#define COMPARISONS(type)                                                                                              \
    ENTRY(type##_operatorEQ), ENTRY(type##_operatorNE), ENTRY(type##_operatorLT), ENTRY(type##_operatorLE),            \
        ENTRY(type##_operatorGT), ENTRY(type##_operatorGE)

// All but those that delete a value. That the program links says that the library has them.
// clang-format off
const EntryPoint entryPoints[] = {
    COMPARISONS(QuadChar), ENTRY(QuadChar_Constructor1), ENTRY(QuadChar_Constructor2), ENTRY(QuadChar_Constructor3),
    ENTRY(QuadChar_operatorAS), ENTRY(QuadChar_operatorAR), ENTRY(QuadChar_operatorCAR), ENTRY(QuadChar_GetMacType),
    ENTRY(QuadChar_SetMacType),
    ENTRY(Locale_Constructor1), ENTRY(Locale_Constructor2), ENTRY(Locale_operatorAS),
    COMPARISONS(Text), ENTRY(Text_Constructor1), ENTRY(Text_GetSize), ENTRY(Text_Assign), ENTRY(Text_AssignWithLength),
    ENTRY(Text_AssignWide), ENTRY(Text_AssignWideWithLength), ENTRY(Text_AssignUnicode),
    ENTRY(Text_AssignUnicodeWithLength), ENTRY(Text_GetBytes), ENTRY(Text_GetBytesEx), ENTRY(Text_GetUnicode),
    ENTRY(Text_SetText), ENTRY(Text_AppendText), ENTRY(Text_InsertText), ENTRY(Text_DeleteText), ENTRY(Text_Find),
    ENTRY(Text_FindPrev), ENTRY(Text_FindIgnoringCase), ENTRY(Text_FindPrevIgnoringCase), ENTRY(Text_Uppercase),
    ENTRY(Text_Lowercase),
    COMPARISONS(FixPt), ENTRY(FixPt_Constructor1), ENTRY(FixPt_Constructor2), ENTRY(FixPt_AssignInt),
    ENTRY(FixPt_AssignInt64), ENTRY(FixPt_AssignDouble), ENTRY(FixPt_AssignFixPt), ENTRY(FixPt_Increment),
    ENTRY(FixPt_Increment64), ENTRY(FixPt_Decrement), ENTRY(FixPt_Decrement64), ENTRY(FixPt_Negate),
    ENTRY(FixPt_GetPrecision), ENTRY(FixPt_SetPrecision), ENTRY(FixPt_Add), ENTRY(FixPt_Subtract),
    ENTRY(FixPt_Multiply), ENTRY(FixPt_Divide), ENTRY(FixPt_AsBool), ENTRY(FixPt_AsLong), ENTRY(FixPt_AsLong64),
    ENTRY(FixPt_AsFloat),
    ENTRY(DateTime_Constructor1), ENTRY(DateTime_Now), ENTRY(DateTime_SetNormalizedDate1),
    ENTRY(DateTime_SetNormalizedTime1), ENTRY(DateTime_GetYear), ENTRY(DateTime_GetMonth), ENTRY(DateTime_GetDay),
    ENTRY(DateTime_GetHour), ENTRY(DateTime_GetMinute), ENTRY(DateTime_GetSec), ENTRY(DateTime_GetUSec),
    ENTRY(DateTime_GetDaysSinceEpoch), ENTRY(DateTime_operatorEQ), ENTRY(DateTime_operatorNE),
    ENTRY(Data_Constructor1), ENTRY(Data_Clear), ENTRY(Data_IsEmpty), ENTRY(Data_IsValid), ENTRY(Data_GetAsBoolean),
    ENTRY(Data_GetNativeType), ENTRY(Data_GetAsText), ENTRY(Data_GetAsNumber), ENTRY(Data_GetAsDate),
    ENTRY(Data_GetAsTime), ENTRY(Data_GetAsTimeStamp), ENTRY(Data_GetLocale), ENTRY(Data_SetAsText),
    ENTRY(Data_SetAsNumber), ENTRY(Data_SetAsDate), ENTRY(Data_SetAsTime), ENTRY(Data_SetAsTimeStamp),
    ENTRY(Data_SetDateTime), ENTRY(Data_ConvertData),
    ENTRY(DataVect_Constructor1), ENTRY(DataVect_Size), ENTRY(DataVect_Clear), ENTRY(DataVect_IsEmpty),
    ENTRY(DataVect_PushBack), ENTRY(DataVect_PopBack), ENTRY(DataVect_At), ENTRY(DataVect_AtAsText),
    ENTRY(DataVect_AtAsNumber), ENTRY(DataVect_AtAsDate), ENTRY(DataVect_AtAsTime), ENTRY(DataVect_AtAsTimeStamp),
    ENTRY(DataVect_AtAsBoolean),
    ENTRY(ExprEnv_Constructor1), ENTRY(ExprEnv_RegisterExternalFunction), ENTRY(ExprEnv_RegisterExternalFunctionEx),
    ENTRY(ExprEnv_RegisterScriptStep), ENTRY(ExprEnv_UnRegisterExternalFunction), ENTRY(ExprEnv_UnRegisterScriptStep),
};
// clang-format on

TEST(EntryPoints, ReportFailuresAndDoNothingElse)
{
    Arguments arguments;
    for (const EntryPoint& entryPoint : entryPoints) {
        SCOPED_TRACE(entryPoint.name);
        for (const auto failure : {fmxkit::Failure::allocation, fmxkit::Failure::other}) {
            fmxkit::failNthCall(1, failure);
            EXPECT_TRUE(entryPoint.call(arguments));
            EXPECT_EQ(fmxkit::callsSinceArmed(), 1U);
            EXPECT_EQ(arguments.slot.m_code, static_cast<fmx::int32>(failure));
        }
    }
    fmxkit::failNthCall(0);
    EXPECT_EQ(arguments.get<fmx::QuadChar&>().GetMacType(), 0x4641494CU);
    EXPECT_EQ(units(arguments.get<Text&>()), u"text");
    EXPECT_EQ(fmxtest::shown(arguments.get<fmx::FixPt&>()), "5");
    EXPECT_TRUE(arguments.get<fmx::DateTime&>() == *fmx::DateTimeUniquePtr());
    EXPECT_EQ(units(arguments.get<fmx::Data&>().GetAsText()), u"1/2/2003");
    EXPECT_EQ(arguments.get<fmx::DataVect&>().Size(), 1U);
    EXPECT_TRUE(fmxkit::externalFunctions().empty() && fmxkit::scriptSteps().empty());
}

TEST(EntryPoints, MembersThrowWhatTheSlotSays)
{
    const auto text = fmxtest::text(u"text");
    fmxkit::failNthCall(2, fmxkit::Failure::allocation);
    EXPECT_EQ(text->GetSize(), 4U);
    EXPECT_THROW(text->Uppercase(), std::bad_alloc);
    fmxkit::failNthCall(1, fmxkit::Failure::other);
    try {
        text->GetSize();
        FAIL();
    } catch (const std::exception& failure) {
        EXPECT_EQ(typeid(failure), typeid(std::exception));
    }
    fmxkit::failNthCall(0);
    // Success sets the slot back, and deleting succeeds.
    fmx::_fmxcpt slot;
    slot.m_code = 2;
    Text* const made = fmx::FM_Text_Constructor1(slot);
    EXPECT_EQ(slot.m_code, 0);
    fmx::FM_Text_Assign(made, "x", 99, slot);
    EXPECT_EQ(slot.m_code, 2);
    fmx::FM_Text_Delete(made, slot);
    EXPECT_EQ(slot.m_code, 0);
    fmx::FM_Text_Delete(nullptr, slot);
    EXPECT_EQ(slot.m_code, 0);
}

TEST(EntryPoints, HaveTheSizesThatPluginsWereCompiledWith)
{
    static_assert(sizeof(fmx::_fmxcpt) == 8 && sizeof(fmx::errcode) == 2 && sizeof(FMX_ExternCallStruct) == 74);
    static_assert(sizeof(fmx::ptrtype) == sizeof(void*) && sizeof(fmx::TextUniquePtr) == sizeof(void*));
    static_assert(std::is_same_v<fmx::unichar16, unsigned short>);
    static_assert(Text::kSize_End == 0xFFFFFFFFU && fmx::Data::kDTBoolean == 7);
    static_assert(!std::is_default_constructible_v<Text> && !std::is_copy_constructible_v<fmx::Data> &&
                  !std::is_copy_assignable_v<fmx::DateTime>);
    // As another compiler lays the record out: bytes at their offsets.
    FMX_ExternCallStruct record{};
    auto* const bytes = reinterpret_cast<unsigned char*>(&record);
    bytes[0] = 62;
    bytes[15] = kFMXT_GetString;
    bytes[17] = 200;
    bytes[26] = 1;
    bytes[27] = 1;
    bytes[42 + 7] = 1;
    EXPECT_EQ(record.extnVersion, 62);
    EXPECT_EQ(record.whichCall, kFMXT_GetString);
    EXPECT_EQ(record.parm1, 200);
    EXPECT_EQ(FMX_PtrType{record.parm3}, 257U);
    EXPECT_EQ(FMX_PtrType{record.result}, FMX_PtrType{1} << 56);
}

} // namespace
