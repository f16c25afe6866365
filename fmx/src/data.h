// What stands behind fmx::Locale, fmx::Data and fmx::DataVect.
#pragma once

#include "date_time.h"
#include "decimal.h"
#include "entry.h"
#include "text.h"

#include <FMXData.h>

#include <atomic>
#include <memory>
#include <utility>
#include <variant>
#include <vector>

namespace fmxkit {

struct LocaleValue {
    fmx::int32 type = fmx::Locale::kType_System;
};

struct DateContent {
    DateTimeValue value; // at midnight
};
struct TimeContent {
    DateTimeValue value; // on 1/1/0001; maybe a duration
};
struct TimeStampContent {
    DateTimeValue value;
};

// What a Data was set from.
using Content = std::variant<std::monostate, TextValue, FixPtValue, DateContent, TimeContent, TimeStampContent>;

// A form that is made when it is first asked for. Threads that ask at once may make it twice; one of them publishes it,
// and from then on it stays where it is.
template <typename Value>
class Lazy {
public:
    Lazy() = default;
    Lazy(const Lazy&) = delete;
    Lazy& operator=(const Lazy&) = delete;
    ~Lazy() { reset(); }

    template <typename Make>
    const Value& get(Make&& make) const
    {
        const Value* present = value_.load(std::memory_order_acquire);
        if (present == nullptr) {
            auto made = std::make_unique<const Value>(make());
            if (value_.compare_exchange_strong(present, made.get(), std::memory_order_acq_rel,
                                               std::memory_order_acquire)) {
                present = made.release();
            }
        }
        return *present;
    }

    void reset() noexcept { delete value_.exchange(nullptr, std::memory_order_acq_rel); }

private:
    mutable std::atomic<const Value*> value_ = nullptr;
};

class DataValue {
public:
    DataValue() = default;
    DataValue(const DataValue& other) : content_(other.content_), type_(other.type_), locale_(other.locale_) {}
    DataValue& operator=(const DataValue&) = delete;
    ~DataValue() = default;

    // Throws std::invalid_argument for a type that the interface doesn't name; changes nothing then.
    void set(Content content, fmx::int32 type);
    void setLocale(LocaleValue locale) { locale_ = locale; }
    void convert(fmx::int32 type);

    bool isEmpty() const;
    bool isValid() const { return validity() == 0; }
    // 0 or the code of what the content can't be read as (its native type).
    fmx::errcode validity() const;
    fmx::int32 type() const noexcept { return type_; }
    const LocaleValue& locale() const noexcept { return locale_; }

    // The references are good until the value changes or goes. Any number of threads may ask at once.
    const TextValue& text() const;
    const FixPtValue& number() const;
    const DateTimeValue& date() const;
    const DateTimeValue& time() const;
    const DateTimeValue& timeStamp() const;
    bool boolean() const { return !number().value.isZero(); }

private:
    Content content_;
    fmx::int32 type_ = fmx::Data::kDTInvalid;
    LocaleValue locale_;
    Lazy<TextValue> text_;
    Lazy<FixPtValue> number_;
    Lazy<DateTimeValue> date_;
    Lazy<DateTimeValue> time_;
    Lazy<DateTimeValue> timeStamp_;
};

struct DataVectValue {
    std::vector<std::unique_ptr<DataValue>> values; // pointers: a reference to a value outlives a growing vector
};

template <>
struct Behind<fmx::Locale> {
    using Type = LocaleValue;
};
template <>
struct Behind<fmx::Data> {
    using Type = DataValue;
};
template <>
struct Behind<fmx::DataVect> {
    using Type = DataVectValue;
};

} // namespace fmxkit
