#include "operations/scene.h"

#include "queries/answer.h"
#include "support/child_process.h"
#include "support/platform_expectations.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>

namespace fs = std::filesystem;
using folidex::test::PluginUnderTest;
using folidex::test::ScratchFolder;

namespace {

void put(const ScratchFolder& scratch, const std::vector<std::string>& items)
{
    for (const std::string& item : items) {
        const std::size_t sign = item.find_first_of("=>#");
        const std::string name = item.substr(0, sign);
        const std::string rest = sign == std::string::npos ? "" : item.substr(sign + 1);
        if (sign == std::string::npos) {
            scratch.makeFolder(name);
        } else if (item[sign] == '=') {
            scratch.write(name, rest);
        } else if (item[sign] == '>') {
            scratch.symlink(rest, name);
        } else {
            scratch.hardLink(rest, name);
        }
    }
}

std::set<std::string> contents(const ScratchFolder& scratch, const fs::path& root)
{
    std::set<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string name = fs::relative(entry.path().parent_path(), root) / entry.path().filename();
        const std::string shown = name.starts_with("./") ? name.substr(2) : name;
        if (entry.is_symlink()) {
            found.insert(shown + ">" + fs::read_symlink(entry.path()).native());
        } else {
            found.insert(entry.is_directory() ? shown + "/" : shown + "=" + scratch.read(entry.path()));
        }
    }
    return found;
}

std::string withFolder(std::string text, const std::string& folder)
{
    for (std::size_t at = 0; (at = text.find('@', at)) != std::string::npos; at += folder.size()) {
        text.replace(at, 1, folder);
    }
    return text;
}

std::string differences(const std::set<std::string>& before, const std::set<std::string>& after)
{
    std::vector<std::string> gone;
    std::vector<std::string> made;
    std::set_difference(before.begin(), before.end(), after.begin(), after.end(), std::back_inserter(gone));
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(), std::back_inserter(made));
    std::string text;
    for (const std::string& item : gone) {
        text += (text.empty() ? "-" : " -") + item;
    }
    for (const std::string& item : made) {
        text += (text.empty() ? "+" : " +") + item;
    }
    return text;
}

// "" when all is as the step says.
std::string differenceOf(const PluginUnderTest& plugin, const Step& step, const ScratchFolder& scratch,
                         const fs::path& root, const std::string& folder)
{
    const auto before = contents(scratch, root);
    std::vector<fmxhost::Value> arguments;
    std::string shown = step.function;
    for (const std::string& argument : step.arguments) {
        arguments.emplace_back(withFolder(argument, folder));
        shown += " \"" + argument + "\"";
    }
    const std::string found = answer(plugin, step.function, arguments);
    const std::string changes = differences(before, contents(scratch, root));
    std::string text;
    if (!folidex::test::saysTheSame(found, withFolder(step.answer, folder))) {
        text += shown + " answered " + found + ", not " + step.answer + "\n";
    }
    if (changes != step.changes) {
        text += shown + " changed \"" + changes + "\", not \"" + step.changes + "\"\n";
    }
    return text;
}

} // namespace

void checkSteps(const std::vector<std::string>& items, const std::vector<Step>& steps)
{
    const PluginUnderTest plugin;
    for (const Step& step : steps) {
        const ScratchFolder scratch;
        put(scratch, items);
        EXPECT_EQ(differenceOf(plugin, step, scratch, scratch.path(), scratch.text()), "");
    }
}

std::string differencesInOwnRoot(const std::vector<std::string>& items, const std::vector<Step>& steps)
{
    const PluginUnderTest plugin;
    std::string text;
    for (const Step& step : steps) {
        const ScratchFolder scratch;
        put(scratch, items);
        if (folidex::test::onGNUstep) { // it does nothing for users and groups without a name
            scratch.write("etc/passwd", "root:x:0:0:root:/:/bin/sh\n");
            scratch.write("etc/group", "root:x:0:\n");
        }
        text += folidex::test::inChild([&] {
            folidex::test::enterRoot(scratch.text());
            return differenceOf(plugin, step, scratch, "/", "");
        });
    }
    return text;
}
