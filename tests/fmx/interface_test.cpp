// The binary interface: which entry points the library has, that plug-ins and the library agree on them, and the
// record.
#include <FMWrapper.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <memory>
#include <string>
#include <type_traits>

namespace {

struct EntryPoints {
    const char* type;
    const char* names; // apart by spaces
};

constexpr const char* comparisons = "operatorEQ operatorNE operatorLT operatorLE operatorGT operatorGE";
constexpr EntryPoints entryPoints[] = {
    {"QuadChar",
     "Constructor1 Constructor2 Constructor3 operatorAS operatorAR operatorCAR GetMacType SetMacType Delete"},
    {"QuadChar", comparisons},
    {"Locale", "Constructor1 Constructor2 operatorAS Delete"},
    {"Text", "Constructor1 Delete GetSize Assign AssignWithLength AssignWide AssignWideWithLength AssignUnicode "
             "AssignUnicodeWithLength GetBytes GetBytesEx GetUnicode SetText AppendText InsertText DeleteText Find "
             "FindPrev FindIgnoringCase FindPrevIgnoringCase Uppercase Lowercase"},
    {"Text", comparisons},
    {"FixPt", "Constructor1 Constructor2 Delete AssignInt AssignInt64 AssignDouble AssignFixPt Increment Increment64 "
              "Decrement Decrement64 Negate GetPrecision SetPrecision Add Subtract Multiply Divide AsBool AsLong "
              "AsLong64 AsFloat"},
    {"FixPt", comparisons},
    {"DateTime",
     "Constructor1 Delete Now SetNormalizedDate1 SetNormalizedTime1 GetYear GetMonth GetDay GetMinute GetSec "
     "GetHour GetUSec GetDaysSinceEpoch operatorEQ operatorNE"},
    {"Data", "Constructor1 Delete Clear IsEmpty IsValid GetAsBoolean GetNativeType GetAsText GetAsNumber GetAsDate "
             "GetAsTime GetAsTimeStamp GetLocale SetAsText SetAsNumber SetAsDate SetAsTime SetAsTimeStamp SetDateTime "
             "ConvertData"},
    {"DataVect", "Constructor1 Delete Size Clear IsEmpty PushBack PopBack At AtAsText AtAsNumber AtAsDate AtAsTime "
                 "AtAsTimeStamp AtAsBoolean"},
    {"ExprEnv", "Constructor1 Delete RegisterExternalFunction RegisterExternalFunctionEx RegisterScriptStep "
                "UnRegisterExternalFunction UnRegisterScriptStep"},
};

TEST(Interface, HasEveryEntryPoint)
{
    Dl_info library{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&fmx::FM_Text_Delete), &library), 0);
    const std::unique_ptr<void, int (*)(void*)> handle(dlopen(library.dli_fname, RTLD_NOW | RTLD_NOLOAD), dlclose);
    ASSERT_NE(handle, nullptr) << library.dli_fname;
    for (const auto& [type, names] : entryPoints) {
        for (std::string rest = names; !rest.empty();) {
            const std::size_t end = std::min(rest.find(' '), rest.size());
            const std::string name = std::string("FM_") + type + '_' + rest.substr(0, end);
            EXPECT_NE(dlsym(handle.get(), name.c_str()), nullptr) << name;
            rest.erase(0, end + 1);
        }
    }
    EXPECT_EQ(dlsym(handle.get(), "_ZN6fmxkit9TextValueD1Ev"), nullptr); // the library's inside stays inside
}

TEST(Interface, HasTheSizesThatPluginsWereCompiledWith)
{
    EXPECT_EQ(sizeof(fmx::_fmxcpt), 8U);
    EXPECT_EQ(sizeof(fmx::ptrtype), sizeof(void*));
    EXPECT_EQ(sizeof(fmx::errcode), 2U);
    EXPECT_TRUE((std::is_same_v<fmx::unichar16, unsigned short>));
    EXPECT_EQ(fmx::Text::kSize_End, 0xFFFFFFFFU);
    EXPECT_EQ(fmx::Data::kDTBoolean, 7);
    EXPECT_EQ(sizeof(fmx::TextUniquePtr), sizeof(void*));
    EXPECT_FALSE(std::is_default_constructible_v<fmx::Text>);
    EXPECT_FALSE(std::is_copy_constructible_v<fmx::Data>);
    EXPECT_FALSE(std::is_copy_assignable_v<fmx::DateTime>);

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
    EXPECT_EQ(sizeof record, 74U);
}

} // namespace
