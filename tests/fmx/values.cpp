#include "values.h"

#include "host/base/unicode.h"
#include "host/base/value.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace fmxtest {

std::vector<std::vector<std::string>> cases(const std::string& heading)
{
    std::vector<std::vector<std::string>> found;
    std::ifstream file(KIT_CASES);
    std::string line;
    while (std::getline(file, line) && !line.starts_with("[" + heading + "]")) {
    }
    while (std::getline(file, line) && !line.empty()) {
        std::vector<std::string>& fields = found.emplace_back();
        std::istringstream parts(line + "|");
        for (std::string field; std::getline(parts, field, '|');) {
            const std::size_t begin = std::min(field.find_first_not_of(' '), field.size());
            fields.push_back(field.substr(begin, field.find_last_not_of(' ') + 1 - begin));
        }
    }
    EXPECT_GT(found.size(), 3U) << heading;
    return found;
}

fmx::TextUniquePtr text(std::u16string_view units)
{
    fmx::TextUniquePtr result;
    result->SetText(fmxhost::Value(units).data().GetAsText());
    return result;
}

fmx::TextUniquePtr text(const std::string& utf8)
{
    return text(fmxhost::toUtf16(utf8));
}

fmx::DataUniquePtr textData(const std::string& utf8, fmx::Data::DataType type)
{
    fmx::DataUniquePtr result;
    result->SetAsText(*text(utf8), *fmx::LocaleUniquePtr(), type);
    return result;
}

fmx::FixPtUniquePtr number(const std::string& digits)
{
    const fmx::DataUniquePtr data = textData(digits);
    fmx::FixPtUniquePtr result(0, data->GetAsNumber());
    result->AssignFixPt(data->GetAsNumber());
    return result;
}

std::u16string units(const fmx::Text& value)
{
    return fmxhost::unitsOf(value);
}

std::string utf8(const fmx::Text& value)
{
    return fmxhost::toUtf8(units(value));
}

std::string shown(const fmx::FixPt& number)
{
    return fmxhost::Value(number).utf8();
}

std::string shown(const fmx::DateTime& timeStamp)
{
    fmx::DataUniquePtr data;
    data->SetAsTimeStamp(timeStamp);
    return utf8(data->GetAsText());
}

} // namespace fmxtest
