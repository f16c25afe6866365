#include "frame/registry.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

std::string definitionOf(short stringNumber)
{
    const auto table = frame::functionTable();
    const auto row = std::find_if(table.begin(), table.end(), [=](const frame::Function& function) {
        return function.stringNumber == stringNumber;
    });
    return row == table.end() ? "no such row" : frame::stepDefinition(row->parameters);
}

const std::string target = R"(<pluginstep><parameter type="target" label="Results" showinline="true"/>)";

std::string calc(const std::string& label, int id, const std::string& inlined = "true",
                 const std::string& type = "Text")
{
    return R"(<parameter type="calc" label=")" + label + R"(" datatype=")" + type + R"(" showinline=")" + inlined +
           R"(" ID=")" + std::to_string(id) + R"("/>)";
}

TEST(ScriptStep, DefinitionsByStringNumber)
{
    const std::string end = "</pluginstep>";
    const std::string source = target + calc("Source Path", 0) + end;
    const std::string sourceDestination = target + calc("Source Path", 0) + calc("Destination Path", 1) + end;
    const std::string password =
        target + calc("Source Path", 0) + calc("Destination Path", 1) + calc("Password", 2) + end;
    const std::string copy =
        target + calc("Source Path", 0) + calc("Destination Path", 1, "true", "text") +
        R"(<parameter type="bool" label="Overwrite File" showinline="true" default="false" ID="2"/>)" +
        calc("Destination File Name", 3, "false") + end;
    const auto list = [](const std::string& label, const std::string& first, const std::string& second) {
        return target + R"(<parameter type="list" label=")" + label +
               R"(" showinline="true" default="0" ID="0"><value ID="0">Please Select</value><value ID="1">)" + first +
               R"(</value><value ID="2">)" + second + "</value></parameter></pluginstep>";
    };

    struct Case {
        std::vector<short> numbers;
        std::string definition;
    };
    const Case cases[] = {
        {{150}, list("Version Type", "Short", "Long")},
        {{189}, list("Error Type", "Text", "Number")},
        {{152, 153}, copy},
        {{154}, target + calc("Source Path", 0) + calc("Destination File Name", 1) + end},
        {{165}, target + calc("Source Path", 0) + calc("Destination Folder Name", 1) + end},
        {{155, 156, 157, 158, 159, 160, 162, 166, 167, 168, 169, 170, 171, 173, 174, 175, 176, 177, 190, 191}, source},
        {{161, 172}, target + end},
        {{163, 164, 184, 185}, sourceDestination},
        {{178, 179}, target + calc("Optional Starting Path", 0, "false") + end},
        {{182, 183, 186, 187}, password},
        {{194, 200, 201}, ""},
    };
    for (const Case& expected : cases) {
        for (const short number : expected.numbers) {
            EXPECT_EQ(definitionOf(number), expected.definition) << number;
        }
    }
}

} // namespace
