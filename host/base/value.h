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

enum class ValueType { empty, text, number, date, time, timestamp, container }; // as in fmx::Data::DataType

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

    explicit operator std::u16string() const { return text(); }
    explicit operator std::int64_t() const { return integer(); }

    // What FileMaker shows as "?": a value of a type that isn't valid.
    static Value undefined(fmx::Data::DataType type = fmx::Data::kDTNumber);
    bool isUndefined() const { return data_->GetNativeType() != fmx::Data::kDTInvalid && !data_->IsValid(); }

    // Of any types as numbers, with FileMaker's 16 places behind the decimal point.
    // Errors: NoResult for an operand that is undefined and for a division by zero.
    friend Value operator+(const Value& a, const Value& b) { return a.with<&fmx::FixPt::Add>(b); }
    friend Value operator-(const Value& a, const Value& b) { return a.with<&fmx::FixPt::Subtract>(b); }
    friend Value operator*(const Value& a, const Value& b) { return a.with<&fmx::FixPt::Multiply>(b); }
    friend Value operator/(const Value& a, const Value& b);
    friend bool operator<(const Value& a, const Value& b) { return a.defined() < b.defined(); }
    friend bool operator==(const Value& a, const Value& b) { return a.defined() == b.defined(); }
    Value rounded(int places = 0) const; // a half away from zero

    // Of a date, a time or a timestamp: "YYYY-MM-DDTHH:MM:SS", as ISO 8601 writes a local time.
    std::string isoText() const;

private:
    const fmx::FixPt& defined() const;

    template <auto operation>
    Value with(const Value& other) const
    {
        const fmx::FixPtUniquePtr result;
        (defined().*operation)(other.defined(), *result);
        return Value(*result);
    }

    std::shared_ptr<const fmx::Data> data_;
};

// Thrown where FileMaker has no result: the value is the result of the function or the operation, "?" or an empty one.
struct NoResult {
    Value value;
};

} // namespace fmxhost
