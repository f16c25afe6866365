#include "bench/handler.h"

#include "host/base/unicode.h"

namespace folidex::bench {

const fmxhost::Plugin& plugin()
{
    struct Started : fmxhost::Plugin {
        Started() : fmxhost::Plugin(FOLIDEX_PLUGIN_FILE) { start(); }
    };
    static const Started started;
    return started;
}

Handler::Handler(std::string_view function, const std::vector<std::string>& arguments)
    : function_(plugin().function(fmxhost::toUtf16(function)))
{
    for (const std::string& argument : arguments) {
        arguments_->PushBack(fmxhost::Value(argument).data());
    }
}

bool Handler::call()
{
    function_.handler(function_.id, *environment_, *arguments_, *result_);
    return result_->GetNativeType() != fmx::Data::kDTText || result_->GetAsText().GetSize() != 9 ||
           fmxhost::unitsOf(result_->GetAsText()) != u"!!ERROR!!";
}

} // namespace folidex::bench
