#include "encoding.h"
#include "entry.h"
#include "text.h"

#include <FMXText.h>

#include <algorithm>
#include <string>
#include <string_view>

using fmx::Text;
using fmxkit::entry;
using fmxkit::inside;
using fmxkit::TextValue;

namespace {

std::u16string_view unitsView(const fmx::uint16* units, std::size_t size)
{
    return {reinterpret_cast<const char16_t*>(units), size};
}

std::string_view viewOrEmpty(const char* bytes)
{
    return bytes == nullptr ? std::string_view() : std::string_view(bytes);
}

std::u16string_view view(const Text& text)
{
    return inside(&text).view();
}

int order(const Text* a, const Text* b)
{
    return inside(a).view().compare(inside(b).view());
}

} // namespace

namespace fmx {
extern "C" {

Text* FM_Text_Constructor1(_fmxcpt& x)
{
    return fmxkit::create<Text>(x);
}

void FM_Text_Delete(Text* self, _fmxcpt& x)
{
    fmxkit::destroy(self, x);
}

uint32 FM_Text_GetSize(const Text* self, _fmxcpt& x)
{
    return entry(x, [&] { return static_cast<uint32>(inside(self).view().size()); });
}

void FM_Text_Assign(Text* self, const char* bytes, int32 encoding, _fmxcpt& x)
{
    entry(x, [&] { inside(self) = TextValue(fmxkit::decode(viewOrEmpty(bytes), encoding)); });
}

void FM_Text_AssignWithLength(Text* self, const char* bytes, uint32 length, int32 encoding, _fmxcpt& x)
{
    entry(x, [&] { inside(self) = TextValue(fmxkit::decode(std::string_view(bytes, length), encoding)); });
}

void FM_Text_AssignWide(Text* self, const wchar_t* characters, _fmxcpt& x)
{
    entry(x, [&] {
        inside(self) = TextValue(fmxkit::decodeWide(characters == nullptr ? std::wstring_view() : characters));
    });
}

void FM_Text_AssignWideWithLength(Text* self, const wchar_t* characters, uint32 length, _fmxcpt& x)
{
    entry(x, [&] { inside(self) = TextValue(fmxkit::decodeWide(std::wstring_view(characters, length))); });
}

void FM_Text_AssignUnicode(Text* self, const uint16* units, _fmxcpt& x)
{
    entry(x, [&] {
        std::size_t length = 0;
        while (units != nullptr && units[length] != 0) {
            ++length;
        }
        inside(self) = TextValue(std::u16string(unitsView(units, length)));
    });
}

void FM_Text_AssignUnicodeWithLength(Text* self, const uint16* units, uint32 length, _fmxcpt& x)
{
    entry(x, [&] { inside(self) = TextValue(std::u16string(unitsView(units, length))); });
}

void FM_Text_GetBytes(const Text* self, char* buffer, uint32 bufferSize, uint32 position, uint32 size, int32 encoding,
                      _fmxcpt& x)
{
    entry(x, [&] {
        if (bufferSize > 0) {
            buffer[fmxkit::encode(inside(self).part(position, size), encoding, buffer, bufferSize - 1)] = '\0';
        }
    });
}

uint32 FM_Text_GetBytesEx(const Text* self, char* buffer, uint32 bufferSize, uint32 position, uint32 size,
                          int32 encoding, _fmxcpt& x)
{
    return entry(x, [&] {
        const std::size_t written = fmxkit::encode(inside(self).part(position, size), encoding, buffer, bufferSize);
        if (written < bufferSize) {
            buffer[written] = '\0';
        }
        return static_cast<uint32>(written);
    });
}

void FM_Text_GetUnicode(const Text* self, uint16* buffer, uint32 position, uint32 size, _fmxcpt& x)
{
    entry(x, [&] {
        const std::u16string_view units = inside(self).part(position, size);
        std::copy(units.begin(), units.end(), buffer);
    });
}

void FM_Text_SetText(Text* self, const Text& other, uint32 position, uint32 size, _fmxcpt& x)
{
    entry(x, [&] {
        const std::u16string_view units = inside(&other).part(position, size);
        inside(self) = units.size() == view(other).size() ? inside(&other) : TextValue(std::u16string(units));
    });
}

void FM_Text_AppendText(Text* self, const Text& other, uint32 position, uint32 size, _fmxcpt& x)
{
    entry(x, [&] {
        TextValue& text = inside(self);
        text.insert(inside(&other).part(position, size), text.view().size());
    });
}

void FM_Text_InsertText(Text* self, const Text& other, uint32 position, _fmxcpt& x)
{
    entry(x, [&] { inside(self).insert(view(other), position); });
}

void FM_Text_DeleteText(Text* self, uint32 position, uint32 size, _fmxcpt& x)
{
    entry(x, [&] { inside(self).erase(position, size); });
}

uint32 FM_Text_Find(const Text* self, const Text& wanted, uint32 position, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).find(view(wanted), position); });
}

uint32 FM_Text_FindPrev(const Text* self, const Text& wanted, uint32 position, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).findPrevious(view(wanted), position); });
}

uint32 FM_Text_FindIgnoringCase(const Text* self, const Text& wanted, uint32 position, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).findIgnoringCase(view(wanted), position); });
}

uint32 FM_Text_FindPrevIgnoringCase(const Text* self, const Text& wanted, uint32 position, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).findPreviousIgnoringCase(view(wanted), position); });
}

void FM_Text_Uppercase(Text* self, _fmxcpt& x)
{
    entry(x, [&] { inside(self).uppercase(); });
}

void FM_Text_Lowercase(Text* self, _fmxcpt& x)
{
    entry(x, [&] { inside(self).lowercase(); });
}

FMXKIT_COMPARISONS(Text, order)

} // extern "C"
} // namespace fmx
