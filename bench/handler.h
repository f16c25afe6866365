// A function of the plug-in, called through the kit as a host calls it, with its arguments made beforehand.
#pragma once

#include "host/base/plugin.h"

#include <string>
#include <string_view>
#include <vector>

namespace folidex::bench {

// The plug-in of this build, loaded and started at the first call. Errors: fmxhost::PluginError.
const fmxhost::Plugin& plugin();

class Handler {
public:
    // Errors: std::out_of_range for a function that isn't registered.
    Handler(std::string_view function, const std::vector<std::string>& arguments);

    // Calls the function; false when it returned an error.
    bool call();

private:
    const fmxkit::ExternalFunction& function_;
    fmx::ExprEnvUniquePtr environment_;
    fmx::DataVectUniquePtr arguments_;
    fmx::DataUniquePtr result_;
};

} // namespace folidex::bench
