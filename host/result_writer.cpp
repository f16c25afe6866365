#include "host/result_writer.h"

#include "host/terminal/terminal.h"
#include "host/unicode.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>

namespace fmxhost {
namespace {

constexpr std::uint32_t pieceSize = 32 * 1024;

bool isLead(char16_t unit)
{
    return unit >> 10 == 0x36;
}

// Hands the text over in pieces that cut no character, so that a long one is never there twice.
template <class Consumer>
void forEachPiece(const fmx::Text& text, Consumer consume)
{
    const std::uint32_t total = text.GetSize();
    for (std::uint32_t position = 0; position < total;) {
        std::u16string piece = unitsOf(text, position, pieceSize);
        const bool cutsCharacter = position + piece.size() < total && piece.size() > 1 && isLead(piece.back());
        if (cutsCharacter) {
            piece.pop_back();
        }
        position += static_cast<std::uint32_t>(piece.size());
        consume(piece);
    }
}

bool isHiddenControl(char16_t unit)
{
    return (unit < 0x20 && unit != u'\t' && unit != u'\n') || (unit >= 0x7F && unit < 0xA0);
}

const char* typeName(ValueType type)
{
    switch (type) {
    case ValueType::text:
        return "text";
    case ValueType::number:
        return "number";
    case ValueType::date:
        return "date";
    case ValueType::time:
        return "time";
    case ValueType::timestamp:
        return "timestamp";
    case ValueType::container:
        return "container";
    default:
        return "empty";
    }
}

// What functions of plug-ins answer by convention when they fail; or what FileMaker shows for an error code.
bool isErrorResult(const Value& value)
{
    constexpr std::u16string_view convention = u"!!ERROR!!";
    if (value.type() != ValueType::text || value.data().GetAsText().GetSize() > convention.size()) {
        return false;
    }
    const std::u16string text = value.text();
    return text == convention || text == u"?";
}

void writeJsonValue(Output& output, const Value& value)
{
    constexpr std::size_t dateLength = 10;
    switch (value.type()) {
    case ValueType::text:
    case ValueType::number:
        forEachPiece(value.data().GetAsText(), [&output](const std::u16string& piece) {
            const std::string quoted = jsonString(toUtf8(piece));
            output.write(std::string_view(quoted).substr(1, quoted.size() - 2));
        });
        break;
    case ValueType::timestamp:
        output.write(isoText(value.timestamp()));
        break;
    case ValueType::date:
        output.write(isoText(value.timestamp()).substr(0, dateLength));
        break;
    case ValueType::time:
        output.write(value.utf8());
        break;
    default:
        break;
    }
}

} // namespace

std::string jsonString(std::string_view utf8)
{
    return nlohmann::json(utf8).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void writePlain(Output& output, const Value& value, const PlainStyle& style)
{
    if (style.colour && isErrorResult(value)) {
        output.write(styled(value.utf8(), Style::error, true) + "\n");
        return;
    }
    bool afterReturn = false;
    forEachPiece(value.data().GetAsText(), [&](const std::u16string& piece) {
        std::u16string shown;
        shown.reserve(piece.size());
        for (const char16_t unit : piece) {
            if (unit == u'\n' && afterReturn) {
                afterReturn = false;
                continue;
            }
            afterReturn = unit == u'\r';
            shown.push_back(afterReturn ? u'\n' : unit);
        }
        if (style.hideControls) {
            std::replace_if(shown.begin(), shown.end(), isHiddenControl, u'\uFFFD');
        }
        output.write(toUtf8(shown));
    });
    output.write("\n");
}

void writeJson(Output& output, std::string_view calculation, const Evaluation& evaluation)
{
    output.write("{\"calculation\":" + jsonString(calculation));
    output.write(std::string(",\"type\":\"") + typeName(evaluation.value.type()) + "\",\"value\":\"");
    writeJsonValue(output, evaluation.value);
    char rest[80];
    const int length =
        std::snprintf(rest, sizeof rest, "\",\"error\":%d,\"seconds\":%.6f}\n", evaluation.error, evaluation.seconds);
    output.write(std::string_view(rest, static_cast<std::size_t>(length)));
}

} // namespace fmxhost
