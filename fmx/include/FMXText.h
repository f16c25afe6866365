// Texts: sequences of UTF-16 code units.
#pragma once

#include "FMXTextStyle.h"
#include "FMXTypes.h"

#include <memory>

namespace fmx {

class Text;

extern "C" {
FMX_API Text* FM_Text_Constructor1(_fmxcpt& x);
FMX_API void FM_Text_Delete(Text* self, _fmxcpt& x);
FMX_API uint32 FM_Text_GetSize(const Text* self, _fmxcpt& x);
FMX_API void FM_Text_Assign(Text* self, const char* bytes, int32 encoding, _fmxcpt& x);
FMX_API void FM_Text_AssignWithLength(Text* self, const char* bytes, uint32 length, int32 encoding, _fmxcpt& x);
FMX_API void FM_Text_AssignWide(Text* self, const wchar_t* characters, _fmxcpt& x);
FMX_API void FM_Text_AssignWideWithLength(Text* self, const wchar_t* characters, uint32 length, _fmxcpt& x);
FMX_API void FM_Text_AssignUnicode(Text* self, const uint16* units, _fmxcpt& x);
FMX_API void FM_Text_AssignUnicodeWithLength(Text* self, const uint16* units, uint32 length, _fmxcpt& x);
FMX_API void FM_Text_GetBytes(const Text* self, char* buffer, uint32 bufferSize, uint32 position, uint32 size,
                              int32 encoding, _fmxcpt& x);
FMX_API uint32 FM_Text_GetBytesEx(const Text* self, char* buffer, uint32 bufferSize, uint32 position, uint32 size,
                                  int32 encoding, _fmxcpt& x);
FMX_API void FM_Text_GetUnicode(const Text* self, uint16* buffer, uint32 position, uint32 size, _fmxcpt& x);
FMX_API void FM_Text_SetText(Text* self, const Text& other, uint32 position, uint32 size, _fmxcpt& x);
FMX_API void FM_Text_AppendText(Text* self, const Text& other, uint32 position, uint32 size, _fmxcpt& x);
FMX_API void FM_Text_InsertText(Text* self, const Text& other, uint32 position, _fmxcpt& x);
FMX_API void FM_Text_DeleteText(Text* self, uint32 position, uint32 size, _fmxcpt& x);
FMX_API uint32 FM_Text_Find(const Text* self, const Text& wanted, uint32 position, _fmxcpt& x);
FMX_API uint32 FM_Text_FindPrev(const Text* self, const Text& wanted, uint32 position, _fmxcpt& x);
FMX_API uint32 FM_Text_FindIgnoringCase(const Text* self, const Text& wanted, uint32 position, _fmxcpt& x);
FMX_API uint32 FM_Text_FindPrevIgnoringCase(const Text* self, const Text& wanted, uint32 position, _fmxcpt& x);
FMX_API void FM_Text_Uppercase(Text* self, _fmxcpt& x);
FMX_API void FM_Text_Lowercase(Text* self, _fmxcpt& x);
FMX_API bool FM_Text_operatorEQ(const Text* self, const Text& that, _fmxcpt& x);
FMX_API bool FM_Text_operatorNE(const Text* self, const Text& that, _fmxcpt& x);
FMX_API bool FM_Text_operatorLT(const Text* self, const Text& that, _fmxcpt& x);
FMX_API bool FM_Text_operatorLE(const Text* self, const Text& that, _fmxcpt& x);
FMX_API bool FM_Text_operatorGT(const Text* self, const Text& that, _fmxcpt& x);
FMX_API bool FM_Text_operatorGE(const Text* self, const Text& that, _fmxcpt& x);
}

// Sizes, positions and found indices count UTF-16 code units from 0. A position past the end counts as the end, a size
// that reaches past the end as the rest. Two texts may share one buffer; a change never shows in the other.
class Text {
public:
    static constexpr uint32 kSize_End = 0xFFFFFFFF;     // up to the end
    static constexpr uint32 kSize_Invalid = 0xFFFFFFFF; // not found

    enum Encoding : int32 {
        kEncoding_Native = 0, // the platform's own: UTF-8
        kEncoding_UTF8 = 1,
        kEncoding_ASCII_Mac = 4, // Mac Roman
        kEncoding_ISO_8859_1 = 5
    };

    uint32 GetSize() const { return _fmxcall(FM_Text_GetSize, this); }

    // Bytes that mean nothing in the encoding become U+FFFD. Without a length the bytes or units end at the first zero.
    void Assign(const char* bytes, Encoding encoding = kEncoding_Native)
    {
        _fmxcall(FM_Text_Assign, this, bytes, encoding);
    }
    void AssignWithLength(const char* bytes, uint32 length, Encoding encoding)
    {
        _fmxcall(FM_Text_AssignWithLength, this, bytes, length, encoding);
    }
    void AssignWide(const wchar_t* characters) { _fmxcall(FM_Text_AssignWide, this, characters); }
    void AssignWideWithLength(const wchar_t* characters, uint32 length)
    {
        _fmxcall(FM_Text_AssignWideWithLength, this, characters, length);
    }
    void AssignUnicode(const uint16* units) { _fmxcall(FM_Text_AssignUnicode, this, units); }
    void AssignUnicodeWithLength(const uint16* units, uint32 length)
    {
        _fmxcall(FM_Text_AssignUnicodeWithLength, this, units, length);
    }

    // Writes whole characters as long as they fit into `bufferSize` bytes; returns how many bytes it wrote. A zero byte
    // follows, not counted, where the buffer has room for it. Characters that the encoding lacks become "?", in UTF-8
    // unpaired surrogates become U+FFFD.
    uint32 GetBytesEx(char* buffer, uint32 bufferSize, uint32 position = 0, uint32 size = kSize_End,
                      Encoding encoding = kEncoding_UTF8) const
    {
        return _fmxcall(FM_Text_GetBytesEx, this, buffer, bufferSize, position, size, encoding);
    }
    // The same, but keeps the buffer's last byte for the zero byte, which always follows (unless `bufferSize` is 0).
    void GetBytes(char* buffer, uint32 bufferSize, uint32 position = 0, uint32 size = kSize_End,
                  Encoding encoding = kEncoding_Native) const
    {
        _fmxcall(FM_Text_GetBytes, this, buffer, bufferSize, position, size, encoding);
    }
    // Copies at most `size` units, without a zero behind them: the buffer holds `size` units, or as many as there are.
    void GetUnicode(uint16* buffer, uint32 position, uint32 size) const
    {
        _fmxcall(FM_Text_GetUnicode, this, buffer, position, size);
    }

    // `other` may be this text itself.
    void SetText(const Text& other, uint32 position = 0, uint32 size = kSize_End)
    {
        _fmxcall(FM_Text_SetText, this, other, position, size);
    }
    void AppendText(const Text& other, uint32 position = 0, uint32 size = kSize_End)
    {
        _fmxcall(FM_Text_AppendText, this, other, position, size);
    }
    void InsertText(const Text& other, uint32 position) { _fmxcall(FM_Text_InsertText, this, other, position); }
    void DeleteText(uint32 position, uint32 size = kSize_End) { _fmxcall(FM_Text_DeleteText, this, position, size); }

    // The first place at or after `position`, or with Prev the last one at or before it. An empty text is never found.
    // Ignoring case compares by full Unicode case folding ("STRASSE" finds "straße"), not by canonical equivalence.
    uint32 Find(const Text& wanted, uint32 position) const { return _fmxcall(FM_Text_Find, this, wanted, position); }
    uint32 FindPrev(const Text& wanted, uint32 position) const
    {
        return _fmxcall(FM_Text_FindPrev, this, wanted, position);
    }
    uint32 FindIgnoringCase(const Text& wanted, uint32 position) const
    {
        return _fmxcall(FM_Text_FindIgnoringCase, this, wanted, position);
    }
    uint32 FindPrevIgnoringCase(const Text& wanted, uint32 position) const
    {
        return _fmxcall(FM_Text_FindPrevIgnoringCase, this, wanted, position);
    }

    // Full Unicode case mapping without a language: "ß" becomes "SS", "i" always "I".
    void Uppercase() { _fmxcall(FM_Text_Uppercase, this); }
    void Lowercase() { _fmxcall(FM_Text_Lowercase, this); }

    // By the numbers of the code units, shorter before longer; no collation.
    bool operator==(const Text& that) const { return _fmxcall(FM_Text_operatorEQ, this, that); }
    bool operator!=(const Text& that) const { return _fmxcall(FM_Text_operatorNE, this, that); }
    bool operator<(const Text& that) const { return _fmxcall(FM_Text_operatorLT, this, that); }
    bool operator<=(const Text& that) const { return _fmxcall(FM_Text_operatorLE, this, that); }
    bool operator>(const Text& that) const { return _fmxcall(FM_Text_operatorGT, this, that); }
    bool operator>=(const Text& that) const { return _fmxcall(FM_Text_operatorGE, this, that); }

    void operator delete(void* self)
    {
        _fmxcpt x;
        FM_Text_Delete(static_cast<Text*>(self), x);
    }

private:
    Text();
    Text(const Text&);
    Text& operator=(const Text&);
};

class TextUniquePtr : public std::unique_ptr<Text> {
public:
    TextUniquePtr() : std::unique_ptr<Text>(_fmxcall(FM_Text_Constructor1)) {}
};

} // namespace fmx
