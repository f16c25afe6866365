#include "data.h"

#include "data_conversion.h"
#include "error_codes.h"

#include <stdexcept>

namespace fmxkit {
namespace {

template <typename... Handlers>
struct Overloaded : Handlers... {
    using Handlers::operator()...;
};
template <typename... Handlers>
Overloaded(Handlers...) -> Overloaded<Handlers...>; // clang before 17 needs it written

TextValue makeText(const Content& content)
{
    return std::visit(Overloaded{
                          [](std::monostate) { return TextValue(); },
                          [](const TextValue& text) { return text; },
                          [](const FixPtValue& number) { return TextValue(textFromNumber(number)); },
                          [](const DateContent& date) { return TextValue(textFromDate(date.value)); },
                          [](const TimeContent& time) { return TextValue(textFromTime(time.value)); },
                          [](const TimeStampContent& stamp) { return TextValue(textFromTimeStamp(stamp.value)); },
                      },
                      content);
}

std::optional<FixPtValue> makeNumber(const Content& content)
{
    using Made = std::optional<FixPtValue>;
    return std::visit(Overloaded{
                          [](std::monostate) { return Made(); },
                          [](const TextValue& text) { return numberFromText(text.view()); },
                          [](const FixPtValue& number) { return Made(number); },
                          [](const DateContent& date) { return Made(numberFromDate(date.value)); },
                          [](const TimeContent& time) { return Made(numberFromTime(time.value)); },
                          [](const TimeStampContent& stamp) { return Made(numberFromTimeStamp(stamp.value)); },
                      },
                      content);
}

using MadeDateTime = std::optional<DateTimeValue>;

MadeDateTime makeDate(const Content& content)
{
    return std::visit(Overloaded{
                          [](std::monostate) { return MadeDateTime(); },
                          [](const TextValue& text) { return dateFromText(text.view()); },
                          [](const FixPtValue& number) { return dateFromNumber(number); },
                          [](const DateContent& date) { return MadeDateTime(date.value); },
                          [](const TimeContent&) { return MadeDateTime(); },
                          [](const TimeStampContent& stamp) {
                              return MadeDateTime({stamp.value.day, 0});
                          },
                      },
                      content);
}

MadeDateTime makeTime(const Content& content)
{
    return std::visit(Overloaded{
                          [](std::monostate) { return MadeDateTime(); },
                          [](const TextValue& text) { return timeFromText(text.view()); },
                          [](const FixPtValue& number) { return timeFromNumber(number); },
                          [](const DateContent&) { return MadeDateTime(DateTimeValue()); },
                          [](const TimeContent& time) { return MadeDateTime(time.value); },
                          [](const TimeStampContent& stamp) {
                              return MadeDateTime({1, stamp.value.micros});
                          },
                      },
                      content);
}

MadeDateTime makeTimeStamp(const Content& content)
{
    return std::visit(Overloaded{
                          [](std::monostate) { return MadeDateTime(); },
                          [](const TextValue& text) { return timeStampFromText(text.view()); },
                          [](const FixPtValue& number) { return timeStampFromNumber(number); },
                          [](const DateContent& date) { return MadeDateTime(date.value); },
                          [](const TimeContent& time) { return withTime(1, 0, 0, 0, time.value.micros); },
                          [](const TimeStampContent& stamp) { return MadeDateTime(stamp.value); },
                      },
                      content);
}

} // namespace

void DataValue::set(Content content, fmx::int32 type)
{
    if (type < fmx::Data::kDTInvalid || type > fmx::Data::kDTBoolean) {
        throw std::invalid_argument("data type");
    }
    content_ = std::move(content);
    type_ = type;
    text_.reset();
    number_.reset();
    date_.reset();
    time_.reset();
    timeStamp_.reset();
}

void DataValue::convert(fmx::int32 type)
{
    switch (isEmpty() ? fmx::Data::kDTInvalid : type) {
    case fmx::Data::kDTText:
        return set(text(), type);
    case fmx::Data::kDTNumber:
        return set(number(), type);
    case fmx::Data::kDTDate:
        return set(DateContent{date()}, type);
    case fmx::Data::kDTTime:
        return set(TimeContent{time()}, type);
    case fmx::Data::kDTTimeStamp:
        return set(TimeStampContent{timeStamp()}, type);
    case fmx::Data::kDTBoolean:
        return set(FixPtValue(Decimal(boolean() ? 1 : 0), FixPtValue::defaultPrecision), type);
    case fmx::Data::kDTInvalid:
        return set(std::monostate(), type);
    default:
        throw std::invalid_argument("data type");
    }
}

bool DataValue::isEmpty() const
{
    const auto* const text = std::get_if<TextValue>(&content_);
    return std::holds_alternative<std::monostate>(content_) || (text != nullptr && text->view().empty());
}

fmx::errcode DataValue::validity() const
{
    if (type_ == fmx::Data::kDTInvalid) {
        return genericCalculationError;
    }
    if (isEmpty()) {
        return noError;
    }
    switch (type_) {
    case fmx::Data::kDTNumber:
    case fmx::Data::kDTBoolean:
        return makeNumber(content_) ? noError : numberCannotBeEvaluated;
    case fmx::Data::kDTDate:
        return makeDate(content_) ? noError : invalidDate;
    case fmx::Data::kDTTime:
        return makeTime(content_) ? noError : invalidTime;
    case fmx::Data::kDTTimeStamp:
        return makeTimeStamp(content_) ? noError : invalidDate;
    default:
        return noError;
    }
}

const TextValue& DataValue::text() const
{
    const auto* const held = std::get_if<TextValue>(&content_);
    return held != nullptr ? *held : text_.get([&] { return makeText(content_); });
}

const FixPtValue& DataValue::number() const
{
    const auto* const held = std::get_if<FixPtValue>(&content_);
    return held != nullptr ? *held : number_.get([&] { return makeNumber(content_).value_or(FixPtValue()); });
}

const DateTimeValue& DataValue::date() const
{
    return date_.get([&] { return makeDate(content_).value_or(DateTimeValue()); });
}

const DateTimeValue& DataValue::time() const
{
    return time_.get([&] { return makeTime(content_).value_or(DateTimeValue()); });
}

const DateTimeValue& DataValue::timeStamp() const
{
    return timeStamp_.get([&] { return makeTimeStamp(content_).value_or(DateTimeValue()); });
}

} // namespace fmxkit
