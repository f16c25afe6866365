#include "support/plugin_under_test.h"

#include "host/base/unicode.h"

#include <stdexcept>

namespace folidex::test {

Result PluginUnderTest::call(std::string_view function, const std::vector<fmxhost::Value>& arguments) const
{
    return Result(plugin_.call(fmxhost::toUtf16(function), arguments));
}

const fmxkit::ExternalFunction& PluginUnderTest::function(std::string_view name) const
{
    const auto* found = plugin_.find(fmxhost::toUtf16(name));
    if (found == nullptr) {
        throw std::out_of_range(std::string(name));
    }
    return *found;
}

} // namespace folidex::test
