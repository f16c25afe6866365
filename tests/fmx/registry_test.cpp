// What plug-ins register, and the four-character codes that tell them apart.
#include "values.h"

#include <fmxkit/registry.h>

#include <tuple>
#include <utility>

using fmx::ExprEnv;
using fmxtest::text;

namespace {

fmx::errcode answerId(short id, const fmx::ExprEnv&, const fmx::DataVect&, fmx::Data&)
{
    return id;
}

class Registry : public testing::Test {
protected:
    void TearDown() override { fmxkit::purge(); }

    static fmx::errcode add(const fmx::QuadChar& plugin, short id, std::u16string_view name, short minimum = 0,
                            short maximum = -1, fmx::ExtPluginType handler = answerId)
    {
        return ExprEnv::RegisterExternalFunction(plugin, id, *text(name), *text(u"prototype"), minimum, maximum, 5,
                                                 handler);
    }
    static fmx::errcode addStep(const fmx::QuadChar& plugin, short id, std::u16string_view name,
                                fmx::ExtPluginType handler = answerId)
    {
        return ExprEnv::RegisterScriptStep(plugin, id, *text(name), *text(u""), *text(u"words|what"), 6, handler);
    }

    fmx::QuadCharUniquePtr mine{'M', 'I', 'N', 'E'};
    fmx::QuadCharUniquePtr other{'O', 'T', 'H', 'R'};
};

TEST_F(Registry, ListsWhatIsRegisteredInOrder)
{
    ASSERT_EQ(add(*mine, 9, u"Last_Id_First", 1, 2), 0);
    ASSERT_EQ(ExprEnv::RegisterExternalFunctionEx(*mine, -1, *text(u"Über"), *text(u"Über ( a )"), *text(u"w|d"), 0, 0,
                                                  0xFF01, answerId),
              0);
    ASSERT_EQ(addStep(*mine, 9, u"Last_Id_First"), 0);
    const auto functions = fmxkit::externalFunctions();
    ASSERT_EQ(functions.size(), 2U);
    const auto& [pluginId, id, name, prototype, description, minimum, maximum, flags, handler] = functions[0];
    EXPECT_EQ(pluginId, 0x4D494E45U);
    EXPECT_EQ(std::tuple(id, minimum, maximum, flags), std::tuple(9, 1, 2, 5U));
    EXPECT_EQ(name + u"/" + prototype + u"/" + description, u"Last_Id_First/prototype/");
    EXPECT_EQ(functions[1].name + u"/" + functions[1].description, u"Über/w|d");
    EXPECT_EQ(functions[1].handler(77, *fmx::ExprEnvUniquePtr(), *fmx::DataVectUniquePtr(), *fmx::DataUniquePtr()), 77);
    const auto steps = fmxkit::scriptSteps();
    ASSERT_EQ(steps.size(), 1U);
    EXPECT_EQ(steps[0].definition + u"/" + steps[0].description, u"/words|what");
    EXPECT_EQ(steps[0].flags, 6U);
    EXPECT_EQ(fmxkit::purge(), 3U);
    EXPECT_TRUE(fmxkit::externalFunctions().empty());
}

TEST_F(Registry, RefusesWhatCannotBeToldApartOrCalledOrIsNotThere)
{
    ASSERT_EQ(add(*mine, 1, u"Name"), 0);
    EXPECT_EQ(add(*mine, 1, u"Other_Name"), 1210);
    EXPECT_EQ(add(*mine, 2, u""), 1200);
    EXPECT_EQ(add(*mine, 2, u"A", 3, 2), 1200);
    EXPECT_EQ(add(*mine, 2, u"A", -1, 2), 1200);
    EXPECT_EQ(add(*mine, 2, u"A", 0, -2), 1200);
    EXPECT_EQ(add(*mine, 2, u"A", 0, 0, nullptr), 1200);
    EXPECT_EQ(fmxkit::externalFunctions().size(), 1U);
    EXPECT_EQ(fmxkit::refusals().functions.size(), 6U);
    EXPECT_EQ(add(*mine, 2, u"A", 3, -1), 0);
    EXPECT_EQ(add(*other, 1, u"B", 3, 3), 0);
    ASSERT_EQ(addStep(*mine, 1, u"Step"), 0);
    EXPECT_EQ(addStep(*mine, 1, u"Other step"), 1210);
    EXPECT_EQ(addStep(*mine, 2, u""), 1200);
    EXPECT_EQ(addStep(*mine, 2, u"Step", nullptr), 1200);
    EXPECT_EQ(ExprEnv::UnRegisterScriptStep(*other, 1), 1224);
    EXPECT_EQ(ExprEnv::UnRegisterExternalFunction(*other, 2), 1224);
    EXPECT_EQ(ExprEnv::UnRegisterExternalFunction(*other, 1), 0);
    EXPECT_EQ(ExprEnv::UnRegisterExternalFunction(*other, 1), 1224);
    EXPECT_EQ(fmxkit::externalFunctions().size() + fmxkit::scriptSteps().size(), 3U);
}

TEST(QuadChar, IsANumberOfFourCharacters)
{
    const fmx::QuadCharUniquePtr code('K', '\xFF', 'R', 'B');
    EXPECT_EQ(code->GetMacType(), 0x4BFF5242U);
    EXPECT_EQ((*code)[0], 'K');
    EXPECT_EQ((*code)[1], 0xFF);
    EXPECT_EQ(std::as_const(*code)[3], 'B');
    EXPECT_THROW((*code)[4], std::exception);
    EXPECT_THROW(std::as_const(*code)[-1], std::exception);
    const fmx::QuadCharUniquePtr copy(*code);
    fmxtest::expectOrder(*copy, *code, 1, 1);
    copy->SetMacType(0x4B000000);
    fmxtest::expectOrder(*copy, *code, 0, 1);
    *copy = *code;
    EXPECT_EQ(copy->GetMacType(), code->GetMacType());
}

} // namespace
