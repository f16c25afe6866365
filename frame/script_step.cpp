#include "frame/script_step.h"

#include <array>
#include <cstddef>

namespace frame {

namespace {

using namespace std::string_view_literals;

constexpr StepParameter textParameter(std::string_view label, bool showInline = true)
{
    return {"calc", label, "Text", showInline, "", {}};
}

constexpr StepParameter listParameter(std::string_view label, std::span<const std::string_view> values)
{
    return {"list", label, "", true, "0", values};
}

constexpr std::array versionTypeValues{"Please Select"sv, "Short"sv, "Long"sv};
constexpr std::array versionTypeList{listParameter("Version Type", versionTypeValues)};

// The second data type has been in lower case from the first release on; saved steps carry it.
constexpr std::array copyList{
    textParameter("Source Path"),
    StepParameter{"calc", "Destination Path", "text", true, "", {}},
    StepParameter{"bool", "Overwrite File", "", true, "false", {}},
    textParameter("Destination File Name", false),
};
constexpr std::array fileNameList{textParameter("Source Path"), textParameter("Destination File Name")};
constexpr std::array folderNameList{textParameter("Source Path"), textParameter("Destination Folder Name")};
constexpr std::array sourceList{textParameter("Source Path")};
constexpr std::array sourceDestinationList{textParameter("Source Path"), textParameter("Destination Path")};
constexpr std::array startingPathList{textParameter("Optional Starting Path", false)};
constexpr std::array passwordList{
    textParameter("Source Path"),
    textParameter("Destination Path"),
    textParameter("Password"),
};
constexpr std::array errorTypeValues{"Please Select"sv, "Text"sv, "Number"sv};
constexpr std::array errorTypeList{listParameter("Error Type", errorTypeValues)};

void appendAttribute(std::string& xml, std::string_view name, std::string_view value)
{
    if (!value.empty()) {
        xml.append(" ").append(name).append("=\"").append(value).append("\"");
    }
}

void appendParameter(std::string& xml, const StepParameter& parameter, std::string_view id)
{
    xml.append("<parameter");
    appendAttribute(xml, "type", parameter.type);
    appendAttribute(xml, "label", parameter.label);
    appendAttribute(xml, "datatype", parameter.dataType);
    appendAttribute(xml, "showinline", parameter.showInline ? "true" : "false");
    appendAttribute(xml, "default", parameter.defaultValue);
    appendAttribute(xml, "ID", id);
    if (parameter.values.empty()) {
        xml.append("/>");
        return;
    }
    xml.append(">");
    for (std::size_t i = 0; i < parameter.values.size(); ++i) {
        xml.append("<value ID=\"").append(std::to_string(i)).append("\">");
        xml.append(parameter.values[i]).append("</value>");
    }
    xml.append("</parameter>");
}

} // namespace

namespace steps {
const StepParameters versionType{true, versionTypeList};
const StepParameters sourceDestinationOverwriteName{true, copyList};
const StepParameters sourceAndFileName{true, fileNameList};
const StepParameters sourceAndFolderName{true, folderNameList};
const StepParameters source{true, sourceList};
const StepParameters none{true, {}};
const StepParameters sourceDestination{true, sourceDestinationList};
const StepParameters startingPath{true, startingPathList};
const StepParameters sourceDestinationPassword{true, passwordList};
const StepParameters errorType{true, errorTypeList};
const StepParameters undefined{false, {}};
} // namespace steps

std::string stepDefinition(const StepParameters& parameters)
{
    if (!parameters.defined) {
        return {};
    }
    static constexpr StepParameter target{"target", "Results", "", true, "", {}};
    std::string xml = "<pluginstep>";
    appendParameter(xml, target, "");
    for (std::size_t i = 0; i < parameters.list.size(); ++i) {
        appendParameter(xml, parameters.list[i], std::to_string(i));
    }
    return xml.append("</pluginstep>");
}

} // namespace frame
