#include "frame/strings.h"

#include "frame/call_record.h"
#include "platform/resources.h"

#include <algorithm>
#include <array>
#include <string>

namespace frame {

std::size_t loadString(short number, fmx::unichar16* buffer, std::size_t capacity)
{
    if (buffer == nullptr || capacity < 2) {
        return 0;
    }
    const auto value = platform::localizedString(pluginBundle(), "KORBFolidex", "KORB " + std::to_string(number));
    if (!value || value->size() >= capacity - 1) {
        return 0;
    }
    *std::copy(value->begin(), value->end(), buffer) = 0;
    return value->size();
}

fmx::TextUniquePtr loadText(short number, Extent extent)
{
    std::array<fmx::unichar16, 1024> buffer{};
    const std::size_t length = loadString(number, buffer.data(), buffer.size());

    fmx::TextUniquePtr text;
    text->AssignUnicodeWithLength(buffer.data(), static_cast<fmx::uint32>(length));
    if (extent == Extent::bareName) {
        const fmx::TextUniquePtr parenthesis;
        parenthesis->Assign("(", fmx::Text::kEncoding_UTF8);
        if (const fmx::uint32 position = text->Find(*parenthesis, 0); position != fmx::Text::kSize_Invalid) {
            text->DeleteText(position);
        }
    }
    return text;
}

} // namespace frame
