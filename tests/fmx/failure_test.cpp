// Every member reports through its error slot, exactly once, and a failing call changes nothing.
#include "values.h"

#include <fmxkit/failure.h>
#include <fmxkit/registry.h>

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

using fmxtest::units;

namespace {

struct Values {
    fmx::QuadCharUniquePtr quad{'F', 'A', 'I', 'L'};
    fmx::QuadCharUniquePtr otherQuad;
    fmx::LocaleUniquePtr locale;
    fmx::TextUniquePtr text = fmxtest::text(u"text");
    fmx::TextUniquePtr otherText;
    fmx::FixPtUniquePtr number{5};
    fmx::FixPtUniquePtr result;
    fmx::DateTimeUniquePtr moment;
    fmx::DateTimeUniquePtr otherMoment;
    fmx::DataUniquePtr data = fmxtest::textData(u"1/2/2003");
    fmx::DataVectUniquePtr vector;
    char bytes[8] = {};
    fmx::uint16 unit[8] = {};

    Values() { vector->PushBack(*data); }
};

fmx::errcode handler(short, const fmx::ExprEnv&, const fmx::DataVect&, fmx::Data&)
{
    return 0;
}

using Call = std::function<void(Values&)>;

const std::vector<Call>& textCalls()
{
    static const std::vector<Call> calls = {
        [](Values&) { fmx::TextUniquePtr(); },
        [](Values& v) { (void)v.text->GetSize(); },
        [](Values& v) { v.text->Assign("a"); },
        [](Values& v) { v.text->AssignWithLength("a", 1, fmx::Text::kEncoding_UTF8); },
        [](Values& v) { v.text->AssignWide(L"a"); },
        [](Values& v) { v.text->AssignWideWithLength(L"a", 1); },
        [](Values& v) { v.text->AssignUnicode(v.unit); },
        [](Values& v) { v.text->AssignUnicodeWithLength(v.unit, 8); },
        [](Values& v) { v.text->GetBytes(v.bytes, 8); },
        [](Values& v) { v.text->GetBytesEx(v.bytes, 8); },
        [](Values& v) { v.text->GetUnicode(v.unit, 0, 8); },
        [](Values& v) { v.text->SetText(*v.text, 1); },
        [](Values& v) { v.text->AppendText(*v.text); },
        [](Values& v) { v.text->InsertText(*v.text, 0); },
        [](Values& v) { v.text->DeleteText(0); },
        [](Values& v) { v.text->Find(*v.text, 0); },
        [](Values& v) { v.text->FindPrev(*v.text, 0); },
        [](Values& v) { v.text->FindIgnoringCase(*v.text, 0); },
        [](Values& v) { v.text->FindPrevIgnoringCase(*v.text, 0); },
        [](Values& v) { v.text->Uppercase(); },
        [](Values& v) { v.text->Lowercase(); },
        [](Values& v) { (void)(*v.text == *v.otherText); },
        [](Values& v) { (void)(*v.text != *v.otherText); },
        [](Values& v) { (void)(*v.text < *v.otherText); },
        [](Values& v) { (void)(*v.text <= *v.otherText); },
        [](Values& v) { (void)(*v.text > *v.otherText); },
        [](Values& v) { (void)(*v.text >= *v.otherText); },
    };
    return calls;
}

const std::vector<Call>& numberAndDateCalls()
{
    static const std::vector<Call> calls = {
        [](Values&) { fmx::FixPtUniquePtr(1, 2); },
        [](Values& v) { fmx::FixPtUniquePtr(1, *v.number); },
        [](Values& v) { v.number->AssignInt(1); },
        [](Values& v) { v.number->AssignInt64(1); },
        [](Values& v) { v.number->AssignDouble(1); },
        [](Values& v) { v.number->AssignFixPt(*v.result); },
        [](Values& v) { v.number->Increment(1); },
        [](Values& v) { v.number->Increment64(1); },
        [](Values& v) { v.number->Decrement(1); },
        [](Values& v) { v.number->Decrement64(1); },
        [](Values& v) { v.number->Negate(); },
        [](Values& v) { v.number->SetPrecision(1); },
        [](Values& v) { v.number->GetPrecision(); },
        [](Values& v) { v.number->Add(*v.number, *v.result); },
        [](Values& v) { v.number->Subtract(*v.number, *v.result); },
        [](Values& v) { v.number->Multiply(*v.number, *v.result); },
        [](Values& v) { v.number->Divide(*v.number, *v.result); },
        [](Values& v) { v.number->AsBool(); },
        [](Values& v) { v.number->AsLong(); },
        [](Values& v) { v.number->AsLong64(); },
        [](Values& v) { v.number->AsFloat(); },
        [](Values& v) { (void)(*v.number == *v.result); },
        [](Values& v) { (void)(*v.number != *v.result); },
        [](Values& v) { (void)(*v.number < *v.result); },
        [](Values& v) { (void)(*v.number <= *v.result); },
        [](Values& v) { (void)(*v.number > *v.result); },
        [](Values& v) { (void)(*v.number >= *v.result); },
        [](Values&) { fmx::DateTimeUniquePtr(); },
        [](Values& v) { v.moment->Now(); },
        [](Values& v) { v.moment->SetNormalizedDate(2, 2, 2); },
        [](Values& v) { v.moment->SetNormalizedTime(2, 2, 2); },
        [](Values& v) { v.moment->GetYear(); },
        [](Values& v) { v.moment->GetMonth(); },
        [](Values& v) { v.moment->GetDay(); },
        [](Values& v) { v.moment->GetHour(); },
        [](Values& v) { v.moment->GetMinute(); },
        [](Values& v) { v.moment->GetSec(); },
        [](Values& v) { v.moment->GetUSec(); },
        [](Values& v) { v.moment->GetDaysSinceEpoch(); },
        [](Values& v) { (void)(*v.moment == *v.otherMoment); },
        [](Values& v) { (void)(*v.moment != *v.otherMoment); },
    };
    return calls;
}

const std::vector<Call>& dataCalls()
{
    static const std::vector<Call> calls = {
        [](Values&) { fmx::LocaleUniquePtr none(fmx::Locale::kType_None); },
        [](Values& v) { fmx::LocaleUniquePtr copy(*v.locale); },
        [](Values& v) { *v.locale = *v.locale; },
        [](Values&) { fmx::DataUniquePtr(); },
        [](Values& v) { v.data->Clear(); },
        [](Values& v) { v.data->IsEmpty(); },
        [](Values& v) { v.data->IsValid(); },
        [](Values& v) { v.data->GetNativeType(); },
        [](Values& v) { v.data->GetAsText(); },
        [](Values& v) { v.data->GetAsNumber(); },
        [](Values& v) { v.data->GetAsDate(); },
        [](Values& v) { v.data->GetAsTime(); },
        [](Values& v) { v.data->GetAsTimeStamp(); },
        [](Values& v) { v.data->GetAsBoolean(); },
        [](Values& v) { v.data->GetLocale(); },
        [](Values& v) { v.data->SetAsText(*v.text, *v.locale); },
        [](Values& v) { v.data->SetAsNumber(*v.number); },
        [](Values& v) { v.data->SetAsDate(*v.moment); },
        [](Values& v) { v.data->SetAsTime(*v.moment); },
        [](Values& v) { v.data->SetAsTimeStamp(*v.moment); },
        [](Values& v) { v.data->SetDateTime(*v.moment, fmx::Data::kDTTime, fmx::Data::kDTTime); },
        [](Values& v) { v.data->ConvertData(fmx::Data::kDTNumber); },
        [](Values&) { fmx::DataVectUniquePtr(); },
        [](Values& v) { v.vector->Size(); },
        [](Values& v) { v.vector->IsEmpty(); },
        [](Values& v) { v.vector->Clear(); },
        [](Values& v) { v.vector->PushBack(*v.data); },
        [](Values& v) { delete v.vector->PopBack(); },
        [](Values& v) { v.vector->At(0); },
        [](Values& v) { v.vector->AtAsText(0); },
        [](Values& v) { v.vector->AtAsNumber(9); },
        [](Values& v) { v.vector->AtAsDate(0); },
        [](Values& v) { v.vector->AtAsTime(0); },
        [](Values& v) { v.vector->AtAsTimeStamp(0); },
        [](Values& v) { v.vector->AtAsBoolean(0); },
    };
    return calls;
}

const std::vector<Call>& registryCalls()
{
    using fmx::ExprEnv;
    static const std::vector<Call> calls = {
        [](Values&) { fmx::QuadCharUniquePtr(); },
        [](Values&) { fmx::QuadCharUniquePtr('a', 'b', 'c', 'd'); },
        [](Values& v) { fmx::QuadCharUniquePtr(*v.quad); },
        [](Values& v) { *v.quad = *v.quad; },
        [](Values& v) { (*v.quad)[0]; },
        [](Values& v) { std::as_const(*v.quad)[0]; },
        [](Values& v) { (void)(*v.quad == *v.otherQuad); },
        [](Values& v) { (void)(*v.quad != *v.otherQuad); },
        [](Values& v) { (void)(*v.quad < *v.otherQuad); },
        [](Values& v) { (void)(*v.quad <= *v.otherQuad); },
        [](Values& v) { (void)(*v.quad > *v.otherQuad); },
        [](Values& v) { (void)(*v.quad >= *v.otherQuad); },
        [](Values& v) { v.quad->GetMacType(); },
        [](Values& v) { v.quad->SetMacType(1); },
        [](Values&) { fmx::ExprEnvUniquePtr(); },
        [](Values& v) { ExprEnv::RegisterExternalFunction(*v.quad, 1, *v.text, *v.text, 0, 0, 0, handler); },
        [](Values& v) { ExprEnv::RegisterExternalFunctionEx(*v.quad, 1, *v.text, *v.text, *v.text, 0, 0, 0, handler); },
        [](Values& v) { ExprEnv::RegisterScriptStep(*v.quad, 1, *v.text, *v.text, *v.text, 0, handler); },
        [](Values& v) { ExprEnv::UnRegisterExternalFunction(*v.quad, 1); },
        [](Values& v) { ExprEnv::UnRegisterScriptStep(*v.quad, 1); },
    };
    return calls;
}

// 1 and 2 as the slot has it, 0 when nothing was thrown.
int thrownBy(const Call& call, Values& values)
{
    try {
        call(values);
    } catch (const std::bad_alloc&) {
        return 1;
    } catch (const std::exception& failure) {
        return typeid(failure) == typeid(std::exception) ? 2 : -1;
    }
    return 0;
}

void expectUnchanged(const Values& v)
{
    EXPECT_EQ(v.quad->GetMacType(), 0x4641494CU);
    EXPECT_EQ(units(*v.text), u"text");
    EXPECT_EQ(v.number->AsLong(), 5);
    EXPECT_EQ(v.number->GetPrecision(), 16);
    EXPECT_TRUE(*v.moment == *fmx::DateTimeUniquePtr());
    EXPECT_EQ(v.data->GetNativeType(), fmx::Data::kDTText);
    EXPECT_EQ(units(v.data->GetAsText()), u"1/2/2003");
    EXPECT_EQ(v.vector->Size(), 1U);
    EXPECT_TRUE(fmxkit::externalFunctions().empty());
    EXPECT_TRUE(fmxkit::scriptSteps().empty());
}

class EveryMember : public testing::TestWithParam<const std::vector<Call>& (*)()> {};

TEST_P(EveryMember, FailsThroughItsSlot)
{
    std::size_t index = 0;
    for (const Call& call : GetParam()()) {
        SCOPED_TRACE("call " + std::to_string(index++));
        Values values;
        fmxkit::failNthCall(1, fmxkit::Failure::allocation);
        EXPECT_EQ(thrownBy(call, values), 1);
        EXPECT_EQ(fmxkit::callsSinceArmed(), 1U);
        fmxkit::failNthCall(1, fmxkit::Failure::other);
        EXPECT_EQ(thrownBy(call, values), 2);
        fmxkit::failNthCall(0);
        expectUnchanged(values);
        fmxkit::failNthCall(2);
        EXPECT_EQ(thrownBy(call, values), 0);
        EXPECT_EQ(fmxkit::callsSinceArmed(), 1U);
        fmxkit::failNthCall(0);
        fmxkit::purge(0x4641494C);
    }
}

std::string nameOf(const testing::TestParamInfo<EveryMember::ParamType>& calls)
{
    const char* const names[] = {"Text", "NumberAndDate", "Data", "Registry"};
    return names[calls.index];
}

INSTANTIATE_TEST_SUITE_P(Failure, EveryMember, testing::Values(textCalls, numberAndDateCalls, dataCalls, registryCalls),
                         nameOf);

TEST(Failure, ASlotIsSetBackBySuccess)
{
    fmx::_fmxcpt slot;
    slot.m_code = 2;
    fmx::Text* const made = fmx::FM_Text_Constructor1(slot);
    EXPECT_EQ(slot.m_code, 0);
    fmx::FM_Text_Assign(made, "x", 99, slot);
    EXPECT_EQ(slot.m_code, 2);
    fmx::FM_Text_Delete(made, slot);
    EXPECT_EQ(slot.m_code, 0);
    fmx::FM_Text_Delete(nullptr, slot);
    EXPECT_EQ(slot.m_code, 0);
}

} // namespace
