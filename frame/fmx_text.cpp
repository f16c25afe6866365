#include "frame/fmx_text.h"

namespace frame {

// FileMaker's unit type is unsigned short, the language's is char16_t: both are the same 16 bits.
static_assert(sizeof(fmx::unichar16) == sizeof(char16_t));

std::u16string textUnits(const fmx::Text& text)
{
    std::u16string units(text.GetSize(), u'\0');
    if (!units.empty()) {
        text.GetUnicode(reinterpret_cast<fmx::uint16*>(units.data()), 0, static_cast<fmx::uint32>(units.size()));
    }
    return units;
}

fmx::TextUniquePtr makeText(std::u16string_view units)
{
    fmx::TextUniquePtr text;
    text->AssignUnicodeWithLength(reinterpret_cast<const fmx::uint16*>(units.data()),
                                  static_cast<fmx::uint32>(units.size()));
    return text;
}

std::u16string uppercased(const fmx::Text& text)
{
    const fmx::TextUniquePtr copy;
    copy->SetText(text);
    copy->Uppercase();
    return textUnits(*copy);
}

} // namespace frame
