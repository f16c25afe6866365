#include "host/calculation/moment.h"

namespace fmxhost {

using fmx::Data;

Value momentOf(const Value& value, Data::DataType type)
{
    if (value.data().IsEmpty()) {
        throw NoResult{Value()};
    }
    // A text or a number of another type is read anew as this one.
    const Data* read = &value.data();
    const fmx::DataUniquePtr own;
    if (value.type() == ValueType::text) {
        const fmx::LocaleUniquePtr locale;
        if (own->SetAsText(read->GetAsText(), *locale, type) != 0) {
            const fmx::DateTimeUniquePtr now;
            now->Now();
            const Value withYear(value.text() + u"/" + Value(std::int32_t{now->GetYear()}).text());
            own->SetAsText(withYear.data().GetAsText(), *locale, type);
        }
        read = own.get();
    } else if (value.type() == ValueType::number && !isUndefined(value)) {
        own->SetAsNumber(read->GetAsNumber(), type);
        read = own.get();
    }
    if (!read->IsValid() || (value.type() == ValueType::time && type == Data::kDTDate)) {
        throw NoResult{undefinedValue(type)};
    }
    fmx::DataUniquePtr made;
    made->SetDateTime(type == Data::kDTDate   ? read->GetAsDate()
                      : type == Data::kDTTime ? read->GetAsTime()
                                              : read->GetAsTimeStamp(),
                      type, type);
    return Value(std::move(made));
}

Value inTypeOf(const Value& left, const Value& right, const Number& result, bool isDifference)
{
    const Data::DataType a = left.data().GetNativeType();
    const Data::DataType b = right.data().GetNativeType();
    const auto isMoment = [](Data::DataType type) { return type >= Data::kDTDate && type <= Data::kDTTimeStamp; };
    Data::DataType type = Data::kDTNumber;
    if (a == b) {
        type = a == Data::kDTTime || (isDifference && a == Data::kDTTimeStamp) ? Data::kDTTime : Data::kDTNumber;
    } else if (!isMoment(b) || (a == Data::kDTTimeStamp && b == Data::kDTTime)) {
        type = a;
    } else if (!isDifference && (!isMoment(a) || (a == Data::kDTTime && b == Data::kDTTimeStamp))) {
        type = b;
    }
    return isMoment(type) ? momentOf(result, type) : Value(result);
}

} // namespace fmxhost
