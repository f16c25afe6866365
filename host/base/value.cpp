#include "host/base/value.h"

#include "host/base/unicode.h"

#include <cstdio>
#include <utility>

namespace fmxhost {

// The kit's text buffers are arrays of 16-bit numbers, not of char16_t; both have the same size and representation.
Value::Value(std::u16string_view text)
{
    const fmx::TextUniquePtr kitText;
    kitText->AssignUnicodeWithLength(reinterpret_cast<const fmx::uint16*>(text.data()),
                                     static_cast<fmx::uint32>(text.size()));
    *this = Value(*kitText);
}

Value::Value(std::string_view utf8Text) : Value(toUtf16(utf8Text)) {}

Value::Value(std::int64_t number)
{
    const fmx::FixPtUniquePtr fixed;
    fixed->AssignInt64(static_cast<fmx::int64>(number));
    *this = Value(*fixed);
}

Value::Value(const fmx::Text& text)
{
    fmx::DataUniquePtr data;
    data->SetAsText(text, *fmx::LocaleUniquePtr(fmx::Locale::kType_System));
    *this = Value(std::move(data));
}

Value::Value(const fmx::FixPt& number)
{
    fmx::DataUniquePtr data;
    data->SetAsNumber(number);
    *this = Value(std::move(data));
}

ValueType Value::type() const
{
    using fmx::Data;
    const auto type = data_->GetNativeType();
    if (data_->IsEmpty() && type != Data::kDTText && type != Data::kDTBinary) {
        return ValueType::empty;
    }
    // The numbers of both are the same.
    return type == Data::kDTBoolean ? ValueType::number : static_cast<ValueType>(type);
}

std::string Value::utf8() const
{
    return toUtf8(text());
}

std::string Value::isoText() const
{
    const fmx::DateTime& time = data_->GetAsTimeStamp();
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", time.GetYear(), time.GetMonth(), time.GetDay(),
                  time.GetHour(), time.GetMinute(), time.GetSec());
    return text;
}

Value Value::undefined(fmx::Data::DataType type)
{
    fmx::DataUniquePtr data;
    data->SetAsText(Value(u"?").data().GetAsText(), *fmx::LocaleUniquePtr(), type);
    return Value(std::move(data));
}

const fmx::FixPt& Value::defined() const
{
    return isUndefined() ? throw NoResult{*this} : data_->GetAsNumber();
}

Value operator/(const Value& a, const Value& b)
{
    return b == 0 ? throw NoResult{Value::undefined()} : a.with<&fmx::FixPt::Divide>(b);
}

Value Value::rounded(int places) const
{
    const fmx::FixPtUniquePtr result(0, places);
    result->AssignFixPt(defined());
    return Value(*result);
}

std::u16string unitsOf(const fmx::Text& text)
{
    std::u16string units(text.GetSize(), u'\0');
    text.GetUnicode(reinterpret_cast<fmx::uint16*>(units.data()), 0, text.GetSize());
    return units;
}

} // namespace fmxhost
