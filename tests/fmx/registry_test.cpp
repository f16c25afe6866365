#include "values.h"

#include <fmxkit/registry.h>

#include <gtest/gtest.h>

#include <string>

using fmx::ExprEnv;
using fmxtest::text;

namespace {

fmx::errcode answerId(short id, const fmx::ExprEnv&, const fmx::DataVect&, fmx::Data&)
{
    return id;
}

class Registry : public testing::Test {
protected:
    void TearDown() override
    {
        fmxkit::purge(mine->GetMacType());
        fmxkit::purge(other->GetMacType());
    }

    fmx::errcode add(const fmx::QuadChar& plugin, short id, std::u16string_view name, short minimum = 0,
                     short maximum = -1, fmx::ExtPluginType handler = answerId) const
    {
        return ExprEnv::RegisterExternalFunction(plugin, id, *text(name), *text(u"prototype"), minimum, maximum, 5,
                                                 handler);
    }
    fmx::errcode addStep(const fmx::QuadChar& plugin, short id, std::u16string_view name,
                         fmx::ExtPluginType handler = answerId) const
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
    EXPECT_EQ(functions[0].id, 9);
    EXPECT_EQ(functions[0].minimumArguments, 1);
    EXPECT_EQ(functions[0].maximumArguments, 2);
    EXPECT_EQ(functions[0].flags, 5U);
    EXPECT_EQ(functions[0].prototype, u"prototype");
    EXPECT_EQ(functions[0].description, u"");
    EXPECT_EQ(functions[1].pluginId, 0x4D494E45U);
    EXPECT_EQ(functions[1].name, u"Über");
    EXPECT_EQ(functions[1].description, u"w|d");
    EXPECT_EQ(functions[1].handler(77, *fmx::ExprEnvUniquePtr(), *fmx::DataVectUniquePtr(), *fmx::DataUniquePtr()), 77);
    const auto steps = fmxkit::scriptSteps();
    ASSERT_EQ(steps.size(), 1U);
    EXPECT_EQ(steps[0].definition, u"");
    EXPECT_EQ(steps[0].description, u"words|what");
    EXPECT_EQ(steps[0].flags, 6U);
    EXPECT_EQ(fmxkit::purge(mine->GetMacType()), 3U);
    EXPECT_TRUE(fmxkit::externalFunctions().empty());
}

TEST_F(Registry, RefusesWhatCannotBeToldApartOrCalled)
{
    ASSERT_EQ(add(*mine, 1, u"Name"), 0);
    EXPECT_EQ(add(*mine, 1, u"Other_Name"), 1210);
    EXPECT_EQ(add(*mine, 2, u""), 1200);
    EXPECT_EQ(add(*mine, 2, u"A", 3, 2), 1200);
    EXPECT_EQ(add(*mine, 2, u"A", -1, 2), 1200);
    EXPECT_EQ(add(*mine, 2, u"A", 0, -2), 1200);
    EXPECT_EQ(add(*mine, 2, u"A", 0, 0, nullptr), 1200);
    EXPECT_EQ(fmxkit::externalFunctions().size(), 1U);
    EXPECT_EQ(add(*mine, 2, u"A", 3, -1), 0);
    EXPECT_EQ(add(*other, 1, u"B", 3, 3), 0);

    ASSERT_EQ(addStep(*mine, 1, u"Step"), 0);
    EXPECT_EQ(addStep(*mine, 1, u"Other step"), 1210);
    EXPECT_EQ(addStep(*mine, 2, u""), 1200);
    EXPECT_EQ(addStep(*mine, 2, u"Step", nullptr), 1200);
    EXPECT_EQ(addStep(*mine, 2, u"Step"), 0);
}

TEST_F(Registry, ForgetsOnlyWhatIsNamed)
{
    add(*mine, 1, u"A");
    add(*other, 1, u"B");
    addStep(*mine, 1, u"A");
    EXPECT_EQ(ExprEnv::UnRegisterExternalFunction(*mine, 2), 1224);
    EXPECT_EQ(ExprEnv::UnRegisterExternalFunction(*mine, 1), 0);
    EXPECT_EQ(ExprEnv::UnRegisterExternalFunction(*mine, 1), 1224);
    EXPECT_EQ(ExprEnv::UnRegisterScriptStep(*other, 1), 1224);
    EXPECT_EQ(fmxkit::scriptSteps().size(), 1U);
    EXPECT_EQ(ExprEnv::UnRegisterScriptStep(*mine, 1), 0);
    EXPECT_EQ(fmxkit::externalFunctions().size(), 1U);
    EXPECT_EQ(add(*mine, 1, u"a"), 0);
    EXPECT_EQ(fmxkit::purge(other->GetMacType()), 1U);
    EXPECT_EQ(fmxkit::purge(other->GetMacType()), 0U);
    EXPECT_EQ(fmxkit::externalFunctions().size(), 1U);
}

TEST(QuadChar, IsANumberOfFourCharacters)
{
    const fmx::QuadCharUniquePtr code('K', '\xFF', 'R', 'B');
    EXPECT_EQ(code->GetMacType(), 0x4BFF5242U);
    EXPECT_EQ((*code)[1], 0xFF);
    const fmx::QuadChar& constant = *code;
    EXPECT_EQ(constant[3], 'B');
    EXPECT_THROW((*code)[4], std::exception);
    EXPECT_THROW(constant[-1], std::exception);

    const fmx::QuadCharUniquePtr copy(*code);
    EXPECT_TRUE(*copy == *code && *copy <= *code && *copy >= *code);
    copy->SetMacType(0x4B000000);
    EXPECT_TRUE(*copy != *code && *copy<*code&& * code> * copy && !(*code <= *copy) && !(*copy >= *code));
    *copy = *code;
    EXPECT_EQ(copy->GetMacType(), code->GetMacType());
    EXPECT_EQ(fmx::QuadCharUniquePtr()->GetMacType(), 0U);
}

} // namespace
