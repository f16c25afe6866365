#include "frame/external_call.h"

#include "frame/fmx_text.h"

#include <utility>

namespace frame {

void fail(ErrorCode code, std::optional<std::string> extended)
{
    throw Failure{code, std::move(extended)};
}

void orFail(ErrorCode code, const platform::Outcome& outcome)
{
    if (!outcome.ok()) {
        fail(code, outcome.description());
    }
}

ExternalCall::ExternalCall(const fmx::DataVect& arguments, fmx::Data& result) : arguments_(arguments), result_(result)
{
}

fmx::uint32 ExternalCall::count() const
{
    return arguments_.Size();
}

void ExternalCall::requireCount(fmx::uint32 exactly) const
{
    if (count() != exactly) {
        fail(ErrorCode::parameterCount);
    }
}

void ExternalCall::requireAtLeast(fmx::uint32 minimum) const
{
    if (count() < minimum) {
        fail(ErrorCode::parameterCount);
    }
}

const fmx::Text& ExternalCall::fmxText(fmx::uint32 index) const
{
    return arguments_.AtAsText(index);
}

PathText ExternalCall::text(fmx::uint32 index) const
{
    return textUnits(fmxText(index));
}

PathText ExternalCall::requiredText(fmx::uint32 index, ErrorCode whenEmpty,
                                    const std::optional<std::string>& extended) const
{
    PathText units = text(index);
    if (units.empty()) {
        fail(whenEmpty, extended);
    }
    return units;
}

void ExternalCall::returnNumber(double value)
{
    const fmx::FixPtUniquePtr number;
    number->AssignDouble(value);
    result_.SetAsNumber(*number);
}

void ExternalCall::returnText(PathView text)
{
    const fmx::TextUniquePtr value = makeText(text);
    result_.SetAsText(*value, result_.GetLocale());
}

void ExternalCall::returnTextInLocaleOf(fmx::uint32 index, PathView text)
{
    const fmx::TextUniquePtr value = makeText(text);
    result_.SetAsText(*value, arguments_.At(index).GetLocale());
}

void ExternalCall::returnUtf8(std::string_view text, fmx::Text::Encoding encoding)
{
    const fmx::TextUniquePtr value;
    value->AssignWithLength(text.data(), static_cast<fmx::uint32>(text.size()), encoding);
    result_.SetAsText(*value, result_.GetLocale());
}

void ExternalCall::returnTimestamp(const platform::LocalDateTime& time)
{
    const fmx::DateTimeUniquePtr value;
    value->SetNormalizedDate(static_cast<fmx::int16>(time.month), static_cast<fmx::int16>(time.day),
                             static_cast<fmx::int16>(time.year));
    value->SetNormalizedTime(time.hour, static_cast<fmx::int16>(time.minute), static_cast<fmx::int16>(time.second), 0);
    result_.SetAsTimeStamp(*value);
}

} // namespace frame
