// The binary interface: the library has every entry point, failures are reported through the error slot, and the record
// is laid out as plug-ins were compiled for it.
#include "values.h"

#include <fmxkit/failure.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <new>
#include <type_traits>
#include <typeinfo>

namespace {

using fmx::Text;

TEST(EntryPoints, AreAllThatTheHeadersDeclare)
{
#define ENTRY(name) reinterpret_cast<const void*>(&fmx::name),
    const void* const all[] = {
#include "entry_points.inc"
    };
#undef ENTRY
    EXPECT_EQ(std::count(std::begin(all), std::end(all), nullptr), 0); // it links
}

TEST(EntryPoints, MembersThrowWhatTheSlotSays)
{
    const auto text = fmxtest::text(u"text");
    fmxkit::failNthCall(2, fmxkit::Failure::allocation);
    EXPECT_EQ(text->GetSize(), 4U);
    EXPECT_THROW(text->Uppercase(), std::bad_alloc);
    EXPECT_EQ(fmxkit::callsSinceArmed(), 2U);
    EXPECT_EQ(fmxtest::units(*text), u"text");
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
