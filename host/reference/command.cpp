#include "host/reference/command.h"

#include "host/reference/reference.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace fmxhost {

namespace {

struct Arguments {
    std::filesystem::path texts = "docs/reference";
    bool html = false;
};

ExitStatus writeReference(Context& context, const Arguments& arguments)
{
    try {
        const auto texts = reference::readReference(arguments.texts, context.plugin().functions());
        context.output().write(arguments.html ? reference::htmlPage(texts, reference::readPageTemplate(arguments.texts))
                                              : reference::markdownPage(texts));
        return ExitStatus::success;
    } catch (const reference::TextError& error) {
        context.reportError(error.what());
        return ExitStatus::wrongUse;
    }
}

} // namespace

CommandBody declareReference(CLI::App& arguments)
{
    const auto values = std::make_shared<Arguments>();
    arguments.add_option("--texts", values->texts, "The folder of the texts (docs/reference)");
    arguments.add_flag("--html", values->html, "One web page instead of Markdown");
    return [values](Context& context) { return writeReference(context, *values); };
}

} // namespace fmxhost
