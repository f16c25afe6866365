#include "host/check/prototype.h"

#include <array>

namespace fmxhost::check {
namespace {

constexpr std::u16string_view blanks = u" \t\u00a0";

std::u16string_view trimmed(std::u16string_view text)
{
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::u16string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

class Reader {
public:
    explicit Reader(std::u16string_view text) : text_(text) {}

    ParameterCounts read()
    {
        while (true) {
            const std::size_t end = text_.find_first_of(u"(){};");
            if (end == std::u16string_view::npos) {
                throw PrototypeError("it has no closing parenthesis");
            }
            const char16_t mark = text_[end];
            if (mark == u'(') {
                throw PrototypeError("it has a parenthesis within a parenthesis");
            }
            take(text_.substr(0, end));
            text_.remove_prefix(end + 1);
            if (mark == u')') {
                return finish();
            }
            follow(mark);
        }
    }

private:
    void take(std::u16string_view parameter)
    {
        parameter = trimmed(parameter);
        if (parameter.empty()) {
            return;
        }
        if (++sinceSeparator_ > 1) {
            throw PrototypeError("it has two parameters without \";\" between them");
        }
        const std::u16string_view name = withoutEllipsis(parameter);
        counts_.more = counts_.more || name.size() != parameter.size();
        if (!name.empty()) {
            ++counts_.named;
            counts_.required += depth_ == 0 ? 1 : 0;
        }
    }

    static std::u16string_view withoutEllipsis(std::u16string_view parameter)
    {
        constexpr std::array<std::u16string_view, 2> ellipses{u"...", u"…"};
        for (const std::u16string_view ellipsis : ellipses) {
            if (parameter.ends_with(ellipsis)) {
                return trimmed(parameter.substr(0, parameter.size() - ellipsis.size()));
            }
        }
        return parameter;
    }

    void follow(char16_t mark)
    {
        if (mark == u'{') {
            ++depth_;
        } else if (mark == u'}') {
            if (--depth_ < 0) {
                throw PrototypeError("it closes a brace that isn't open");
            }
        } else {
            if (sinceSeparator_ == 0) {
                throw PrototypeError("it has a \";\" with no parameter before it");
            }
            sinceSeparator_ = 0;
            separated_ = true;
        }
    }

    ParameterCounts finish() const
    {
        if (depth_ != 0) {
            throw PrototypeError("it has a brace that isn't closed");
        }
        if (separated_ && sinceSeparator_ == 0) {
            throw PrototypeError("it has a \";\" with no parameter behind it");
        }
        if (!trimmed(text_).empty()) {
            throw PrototypeError("something follows its closing parenthesis");
        }
        return counts_;
    }

    std::u16string_view text_;
    ParameterCounts counts_;
    int depth_ = 0;
    int sinceSeparator_ = 0; // parameters since the last ";"
    bool separated_ = false;
};

} // namespace

ParameterCounts readParameters(std::u16string_view parameters)
{
    const std::u16string_view list = trimmed(parameters);
    if (list.empty()) {
        return {};
    }
    if (list.front() != u'(') {
        throw PrototypeError("something other than \"(\" follows the name");
    }
    return Reader(list.substr(1)).read();
}

std::string countsText(const ParameterCounts& counts)
{
    std::string text = std::to_string(counts.required);
    if (counts.more) {
        text += " or more";
    } else if (counts.required != counts.named) {
        text += " to " + std::to_string(counts.named);
    }
    return text + (text == "1" ? " parameter" : " parameters");
}

} // namespace fmxhost::check
