#include "host/terminal/prompt.h"

#include "host/calculation_runner.h"
#include "host/commands/help.h"
#include "host/terminal/history_file.h"
#include "host/terminal/line_editor.h"
#include "host/terminal/terminal.h"
#include "host/unicode.h"

#include <unistd.h>

#include <string>
#include <utility>

namespace fmxhost {
namespace {

std::string promptText()
{
    // libedit leaves out an escape sequence at the very end.
    return wantsColour(STDOUT_FILENO) ? "\1\033[1m\1fmxhost>\1\033[0m\1 " : "fmxhost> ";
}

std::string_view trimmed(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The command word of a line and what follows it.
std::pair<std::u16string, std::string_view> commandOf(std::string_view line)
{
    const std::size_t end = line.find_first_of(" \t");
    return {foldCase(toUtf16(line.substr(0, end))),
            end == std::string_view::npos ? std::string_view() : trimmed(line.substr(end))};
}

Completion completionOf(Context& context, std::string_view before, std::string_view word)
{
    Completion completion;
    const std::u16string begun = toUtf16(word);
    if (begun.starts_with(u'$')) {
        for (const auto& [name, value] : context.evaluator().variables()) {
            if (name.starts_with(foldCase(begun))) {
                completion.candidates.push_back(toUtf8(name));
            }
        }
        completion.ending = [](const std::string&) { return std::string(); };
        return completion;
    }
    const FunctionTable& functions = context.functions();
    for (const std::u16string_view name : functions.namesWithPrefix(begun)) {
        completion.candidates.push_back(toUtf8(name));
    }
    const bool isHelp = commandOf(trimmed(before)).first == u"help";
    completion.ending = [&functions, isHelp](const std::string& name) -> std::string {
        const std::optional<Function> function = functions.find(toUtf16(name));
        return isHelp || !function || maximumArguments(*function) == 0 ? "" : "(";
    };
    return completion;
}

void showHelp(Context& context, std::string_view name)
{
    const std::optional<std::string> text =
        name.empty() ? languageHelp(context.functions()) : functionHelp(context.functions(), name);
    if (text) {
        context.output().write(*text);
        context.output().flush();
    } else {
        context.reportError(unknownFunctionText(context.functions(), name));
    }
}

void greet(Context& context)
{
    const std::string name = toUtf8(context.plugin().string(PluginString::name));
    context.output().write((name.empty() ? context.pluginFile().filename().string() : name) + ", " +
                           std::to_string(context.plugin().functions().size()) +
                           " functions. help explains, Ctrl-D ends.\n");
    context.output().flush();
}

} // namespace

ExitStatus runPrompt(Context& context)
{
    greet(context);
    LineEditor editor(promptText(), historyFile(), [&context](std::string_view before, std::string_view word) {
        return completionOf(context, before, word);
    });
    bool warned = false;
    const InterruptShield betweenLines;
    std::string line;
    for (;;) {
        const LineEditor::Outcome outcome = editor.read(line);
        if (outcome == LineEditor::Outcome::interrupted) {
            continue;
        }
        if (outcome == LineEditor::Outcome::end) {
            break;
        }
        const std::string_view text = trimmed(line);
        if (text.empty() || text.starts_with('#')) {
            continue;
        }
        if (!editor.remember(line) && !std::exchange(warned, true)) {
            context.reportError("The history can't be saved in " + historyFile().string());
        }
        const auto [command, argument] = commandOf(text);
        if (argument.empty() && (command == u"quit" || command == u"exit")) {
            return ExitStatus::success;
        }
        if (command == u"help") {
            showHelp(context, argument);
        } else {
            const InterruptShield shield;
            runCalculation(context, text, {});
        }
    }
    context.output().write("\n");
    return ExitStatus::success;
}

} // namespace fmxhost
