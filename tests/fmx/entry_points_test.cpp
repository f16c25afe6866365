// The binary interface: the library has every entry point, each reports through its error slot and does nothing else
// then, and the record is laid out as plug-ins were compiled for it.
#include "values.h"

#include <fmxkit/failure.h>
#include <fmxkit/registry.h>
#include <gtest/gtest.h>

#include <cstddef>
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

// All that the kit's headers declare but those that delete a value.
const EntryPoint entryPoints[] = {
#define ENTRY(name) {#name, [](Arguments& arguments) { return answersZero(&fmx::name, arguments); }},
#include "entry_points.inc"
#undef ENTRY
};

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
    EXPECT_EQ(fmxkit::callsSinceArmed(), 2U);
    EXPECT_EQ(units(*text), u"text");
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

// What plug-ins were compiled with.
static_assert(sizeof(fmx::_fmxcpt) == 8 && sizeof(fmx::errcode) == 2 && sizeof(FMX_ExternCallStruct) == 74);
static_assert(sizeof(fmx::ptrtype) == sizeof(void*) && sizeof(fmx::TextUniquePtr) == sizeof(void*));
static_assert(std::is_same_v<fmx::unichar16, unsigned short>);
static_assert(Text::kSize_End == 0xFFFFFFFFU && fmx::Data::kDTBoolean == 7);
static_assert(!std::is_default_constructible_v<Text> && !std::is_copy_constructible_v<fmx::Data> &&
              !std::is_copy_assignable_v<fmx::DateTime>);
static_assert(offsetof(FMX_ExternCallStruct, whichCall) == 15 && offsetof(FMX_ExternCallStruct, parm1) == 17 &&
              offsetof(FMX_ExternCallStruct, parm2) == 18 && offsetof(FMX_ExternCallStruct, parm3) == 26 &&
              offsetof(FMX_ExternCallStruct, result) == 42 && offsetof(FMX_ExternCallStruct, cCurrentEnv) == 66);

} // namespace
