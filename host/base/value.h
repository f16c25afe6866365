// A FileMaker value as the host and the tests hold it: what goes into a call and what comes out of it.
#pragma once

#include <FMWrapper.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace fmxhost {

// The units of a kit text.
std::u16string unitsOf(const fmx::Text& text);

enum class ValueType { empty, text, number, date, time, timestamp, container };

// An immutable value; copies share it, so a long text is copied at no cost.
//
// Thread rule: one Value object and its copies belong to one thread at a time, because the conversions of fmx::Data
// keep what they have converted.
// Errors: std::bad_alloc and std::exception from the kit.
class Value {
public:
    Value() : Value(fmx::DataUniquePtr()) {} // empty, of no type
    Value(std::u16string_view text);
    Value(const std::u16string& text) : Value(std::u16string_view(text)) {}
    Value(const char16_t* text) : Value(std::u16string_view(text)) {}
    Value(std::string_view utf8Text); // ill-formed bytes become U+FFFD
    Value(const std::string& utf8Text) : Value(std::string_view(utf8Text)) {}
    Value(const char* utf8Text) : Value(std::string_view(utf8Text)) {}
    Value(const std::filesystem::path& path) : Value(std::string_view(path.native())) {}
    Value(std::int32_t number) : Value(static_cast<std::int64_t>(number)) {}
    Value(std::int64_t number);
    explicit Value(const fmx::Text& text); // shares the text's buffer
    explicit Value(const fmx::FixPt& number);
    explicit Value(fmx::DataUniquePtr data) : data_(data.release()) {} // must not be null

    const fmx::Data& data() const { return *data_; }

    // `empty`: nothing was ever set, or it was cleared again. A text of no characters is a text.
    ValueType type() const;

    // Any type as FileMaker shows it.
    std::u16string text() const { return unitsOf(data_->GetAsText()); }
    std::string utf8() const;

    // Any type as a number, by FileMaker's rules for texts (their digits); 0 when there is none.
    std::int64_t integer() const { return data_->GetAsNumber().AsLong64(); }
    double number() const { return data_->GetAsNumber().AsFloat(); }
    bool boolean() const { return data_->GetAsBoolean(); }

    // Of a date, a time or a timestamp: "YYYY-MM-DDTHH:MM:SS", as ISO 8601 writes a local time.
    std::string isoText() const;

private:
    std::shared_ptr<const fmx::Data> data_;
};

} // namespace fmxhost
