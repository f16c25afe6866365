// Shorthand for the values that the kit's tests work with.
#pragma once

#include <FMWrapper.h>

#include <string>
#include <string_view>

namespace fmxtest {

inline fmx::TextUniquePtr text(std::u16string_view units)
{
    fmx::TextUniquePtr result;
    result->AssignUnicodeWithLength(reinterpret_cast<const fmx::uint16*>(units.data()),
                                    static_cast<fmx::uint32>(units.size()));
    return result;
}

inline std::u16string units(const fmx::Text& value)
{
    std::u16string result(value.GetSize(), u'\0');
    value.GetUnicode(reinterpret_cast<fmx::uint16*>(result.data()), 0, value.GetSize());
    return result;
}

inline std::string utf8(const fmx::Text& value)
{
    std::string result(std::size_t{value.GetSize()} * 3, '\0');
    result.resize(value.GetBytesEx(result.data(), static_cast<fmx::uint32>(result.size())));
    return result;
}

inline fmx::DataUniquePtr textData(std::u16string_view units, fmx::Data::DataType type = fmx::Data::kDTText)
{
    fmx::DataUniquePtr result;
    result->SetAsText(*text(units), *fmx::LocaleUniquePtr(), type);
    return result;
}

// A number as FileMaker would show it.
inline std::string shown(const fmx::FixPt& number)
{
    fmx::DataUniquePtr data;
    data->SetAsNumber(number);
    return utf8(data->GetAsText());
}

// A number read from its digits, with their precision or 16.
inline fmx::FixPtUniquePtr number(std::u16string_view digits)
{
    const fmx::DataUniquePtr data = textData(digits);
    fmx::FixPtUniquePtr result(0, data->GetAsNumber());
    result->AssignFixPt(data->GetAsNumber());
    return result;
}

inline std::string shown(const fmx::DateTime& value)
{
    fmx::DataUniquePtr data;
    data->SetAsTimeStamp(value);
    return utf8(data->GetAsText());
}

} // namespace fmxtest
