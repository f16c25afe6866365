#include "support/plugin_under_test.h"

#include "host/base/unicode.h"

namespace folidex::test {

Result PluginUnderTest::call(std::string_view function, const std::vector<fmxhost::Value>& arguments) const
{
    return Result(fmxhost::Plugin::call(this->function(function), arguments));
}

const fmxkit::ExternalFunction& PluginUnderTest::function(std::string_view name) const
{
    return plugin_.function(fmxhost::toUtf16(name));
}

} // namespace folidex::test
