// Every example of the function reference, run against the plug-in. The folder /data of the texts is a scratch folder,
// which is also the user's home; there is no display.
#include "host/calculation/evaluate.h"
#include "host/reference/function_text.h"
#include "host/base/unicode.h"
#include "support/platform_expectations.h"
#include "support/plugin_under_test.h"
#include "support/scratch_folder.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

using fmxhost::reference::Example;
using folidex::test::PluginUnderTest;
using folidex::test::ScratchFolder;

const std::filesystem::path texts = REFERENCE_TEXTS;

std::vector<std::string> describedFunctions()
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(texts)) {
        const std::string name = entry.path().stem().string();
        if (name.starts_with("KORB_")) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

Example exampleOf(const std::string& function)
{
    std::ifstream stream(texts / (function + ".md"));
    const std::string source{std::istreambuf_iterator<char>(stream), {}};
    return fmxhost::reference::parseFunctionText(function, source).example;
}

std::string inFolder(const ScratchFolder& folder, std::string text)
{
    constexpr std::string_view written = "/data";
    for (std::size_t at = 0; (at = text.find(written, at)) != std::string::npos; at += folder.text().size()) {
        text.replace(at, written.size(), folder.text());
    }
    return text;
}

// As the texts write results.
std::string written(const fmxhost::Value& value)
{
    switch (value.type()) {
    case fmxhost::ValueType::text:
        return '"' + value.utf8() + '"';
    case fmxhost::ValueType::timestamp:
        return isoText(value.timestamp());
    default:
        return value.utf8();
    }
}

class ReferenceExample : public testing::TestWithParam<std::string> {};

TEST_P(ReferenceExample, GivesWhatTheTextSays)
{
    if (GetParam().ends_with("CreationDate")) {
        SKIP_ON_GNUSTEP("the creation date is the time of the last change of status");
    }
    if (GetParam() == "KORB_GetFileMakerPath") {
        SKIP_ON_GNUSTEP("a program that isn't a bundle has one all the same, \"Resources\" below its folder");
    }
    const Example example = exampleOf(GetParam());
    const ScratchFolder data;
    const ScratchFolder scripts;
    setenv("HOME", data.text().c_str(), 1);
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");

    const auto setup = scripts.write("setup.sh", inFolder(data, example.setup));
    ASSERT_EQ(std::system(("sh -e '" + setup.string() + "'").c_str()), 0) << example.setup;

    PluginUnderTest plugin;
    const fmxhost::FunctionTable functions(plugin.plugin().functions());
    fmxhost::Evaluator evaluator(functions);
    for (const auto& step : example.steps) {
        const auto brought = evaluator.evaluate(fmxhost::toUtf16(inFolder(data, step.calculation)));
        EXPECT_EQ(written(brought.value), inFolder(data, step.result)) << step.calculation;
        EXPECT_EQ(brought.error, 0) << step.calculation;
    }
}

INSTANTIATE_TEST_SUITE_P(Every, ReferenceExample, testing::ValuesIn(describedFunctions()),
                         [](const auto& example) { return example.param; });

} // namespace
