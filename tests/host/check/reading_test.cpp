// What "fmxhost check" reads: prototypes, definitions of script steps, library files.
#include "host/check/binary.h"
#include "host/check/naming.h"
#include "host/check/prototype.h"
#include "host/check/server_libraries.h"
#include "host/check/step_definition.h"

#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>

namespace fmxhost::check {
namespace {

TEST(Prototypes, ParametersAreCounted)
{
    struct Case {
        std::u16string_view parameters;
        std::string counts;
    };
    for (const Case& each : std::initializer_list<Case>{
             {u"", "0 parameters"},
             {u"  ", "0 parameters"},
             {u"()", "0 parameters"},
             {u" ( a )", "1 parameter"},
             {u"( a ; b )", "2 parameters"},
             {u"( a {; b ; c } )", "1 to 3 parameters"},
             {u"( a {; b {; c}} )", "1 to 3 parameters"},
             {u"({a ; }b)", "1 to 2 parameters"},
             {u"( { a } )", "0 to 1 parameters"},
             {u"( a... )", "1 or more parameters"},
             {u"( field {; field…} )", "1 or more parameters"},
             {u"( { a ; ... } )", "0 or more parameters"},
             {u"( test1 ; result1 {; test2 ; result2 ; ... ; defaultResult } )", "2 or more parameters"},
         }) {
        EXPECT_EQ(countsText(readParameters(each.parameters)), each.counts)
            << std::string(each.parameters.begin(), each.parameters.end());
    }
}

TEST(Prototypes, WhatIsNoParameterListIsRefused)
{
    for (const std::u16string_view parameters :
         {u"a", u"(", u"( a", u"( a ; )", u"( ; a )", u"( a ;; b )", u"( a { b } )", u"( a {; b )", u"( a } )",
          u"( a ( b ) )", u"( a ) b", u"{ a }"}) {
        EXPECT_THROW(readParameters(parameters), PrototypeError) << std::string(parameters.begin(), parameters.end());
    }
}

TEST(StepDefinitions, AreXmlAndNothingElse)
{
    const std::string parameter = R"(<PluginStep><Parameter Type="calc" Label="A" ID="0" )";
    EXPECT_TRUE(faultsOfDefinition(parameter + "/></PluginStep>").empty());
    for (const std::string& definition :
         {std::string("text"), std::string("<PluginStep>"), std::string("<PluginStep/>text"),
          parameter + R"(ID="0"/></PluginStep>)", parameter + R"(Default="a & b"/></PluginStep>)",
          parameter + R"(Default="<"/></PluginStep>)", parameter + "/>&undefined;</PluginStep>"}) {
        const std::vector<std::string> faults = faultsOfDefinition(definition);
        ASSERT_EQ(faults.size(), 1U) << definition;
        EXPECT_NE(faults.front().find("isn't well-formed XML"), std::string::npos) << faults.front();
    }
}

TEST(StepDefinitions, EveryFaultIsNamed)
{
    const std::vector<std::string> faults = faultsOfDefinition(
        R"(<pluginstep name="N"><parameter type="calc" ID="x" showinline="yes" lable="A"><value ID="0"/></parameter>)"
        R"(<parameter type="list" label="B" ID="1"><value>b</value><value ID="3" colour="red"/></parameter><value ID="2"/>)"
        R"(<parameter type="list" label="C" ID="01">x</parameter>stray)"
        R"(<parameter type="bool" label="D" ID="4" datatype="shape" default="perhaps"/></pluginstep>)");
    EXPECT_EQ(faults,
              (std::vector<std::string>{
                  "<pluginstep> has an attribute name that isn't known",
                  "parameter 1 has an attribute lable that isn't known",
                  "parameter 1 has no label",
                  "parameter 1: showinline is \"yes\" instead of \"true\" or \"false\"",
                  "parameter 1: its ID \"x\" is no number",
                  "the definition has an element <value> in <parameter> of type \"calc\" where none is known",
                  "a value of parameter 2 \"B\" has no ID",
                  "a value of parameter 2 \"B\" has an attribute colour that isn't known",
                  "a value of parameter 2 \"B\" has no text",
                  "the definition has an element <value> in <pluginstep> where none is known",
                  "parameter 3 \"C\": its ID \"01\" is taken",
                  "the definition has text in <parameter>, where none is known",
                  "parameter 3 \"C\" is a list without values",
                  "the definition has text in <pluginstep>, where none is known",
                  "parameter 4 \"D\" is of data type \"shape\"; known are text, number, date, time, timestamp and "
                  "container",
                  "parameter 4 \"D\": its default is \"perhaps\" instead of \"true\" or \"false\"",
              }));
}

#ifdef __linux__ // libraries of macOS have none
TEST(ServerLibraries, VersionsAreComparedByNumber)
{
    for (const char* version : {"GLIBC_2.2.5", "GLIBC_2.9", "GLIBC_2.35", "GLIBCXX_3.4", "GLIBCXX_3.4.30", "CXXABI_1.3",
                                "CXXABI_FLOAT128", "MOUNT_2.19", "SOME_9.9"}) {
        EXPECT_FALSE(newestVersionIfNewer(version)) << version;
    }
    for (const char* version : {"GLIBC_2.36", "GLIBC_3.0", "GLIBC_2.35.1", "GLIBCXX_3.4.31", "CXXABI_1.3.14",
                                "MOUNT_2_38", "GLIBC_ABI_DT_RELR"}) {
        EXPECT_TRUE(newestVersionIfNewer(version)) << version;
    }
}
#endif

TEST(Numbers, AreWrittenAsPeopleDo)
{
    EXPECT_EQ(numbersText({}), "");
    EXPECT_EQ(numbersText({2, 3, 6, 10, 11, 12, 255}), "2, 3, 6, 10 to 12, 255");
}

// A file may claim anything. Reading it ends in an answer or a BinaryError, never outside of the file.
TEST(Binaries, DamagedOnesAreReadToAnEnd)
{
    std::ifstream stream(CHECK_PLUGINS "/good.fmx", std::ios::binary);
    const std::string good{std::istreambuf_iterator<char>(stream), {}};
    const folidex::test::ScratchFolder folder;
    const std::filesystem::path file = folder.path() / "damaged.fmx";
    std::size_t read = 0;
    std::size_t refused = 0;
    const auto tryReading = [&](const std::string& bytes) {
        std::ofstream(file, std::ios::binary) << bytes;
        try {
            readBinary(file);
            ++read;
        } catch (const BinaryError&) {
            ++refused;
        }
    };
    std::mt19937 random(20260115); // NOLINT: the same damage each time
    constexpr int rounds = 400;
    for (int round = 0; round < rounds; ++round) {
        tryReading(good.substr(0, random() % good.size()));
        std::string changed = good;
        constexpr std::size_t interesting = 8192; // headers, symbols, versions
        for (int change = 0; change < 8; ++change) {
            changed[random() % std::min(interesting, changed.size())] = static_cast<char>(random());
        }
        tryReading(changed);
    }
    tryReading(good);
    EXPECT_GT(read, 0U);
    EXPECT_GT(refused, 100U);
    EXPECT_EQ(readBinary(CHECK_PLUGINS "/good.fmx").exports, std::vector<std::string>{"FMExternCallProc"});
}

} // namespace
} // namespace fmxhost::check
