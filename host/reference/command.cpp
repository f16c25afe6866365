#include "host/reference/command.h"

#include "host/reference/reference.h"

namespace fmxhost {

ExitStatus writeReference(Session& session, const std::filesystem::path& folder, bool html)
{
    try {
        const auto texts = reference::readReference(folder, session.plugin().functions());
        session.output().write(html ? reference::htmlPage(texts, reference::readPageTemplate(folder))
                                              : reference::markdownPage(texts));
        return ExitStatus::success;
    } catch (const reference::TextError& error) {
        session.output().reportError(error.what());
        return ExitStatus::wrongUse;
    }
}

} // namespace fmxhost
