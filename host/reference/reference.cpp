#include "host/reference/reference.h"

#include "host/base/unicode.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <utility>

namespace fmxhost::reference {

namespace {

std::string readFile(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw TextError(file.string() + " can't be read");
    }
    return {std::istreambuf_iterator<char>(stream), {}};
}

// A description is "words to find it by|what it does".
void takeDescription(Entry& entry, const std::string& description)
{
    const std::size_t bar = description.find('|');
    const std::size_t start = bar == description.npos ? 0 : bar + 1;
    const std::size_t end = description.find(". ", start);
    entry.words = description.substr(0, start == 0 ? 0 : bar);
    entry.summary = description.substr(start, end == description.npos ? end : end + 1 - start);
}

bool isLetter(char letter)
{
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z');
}

// The names in a prototype such as "F( a {; b } )", in order; optional ones stand in braces.
std::vector<Parameter> parametersOf(const std::string& prototype)
{
    std::vector<Parameter> parameters;
    bool optional = false;
    bool inName = false;
    for (std::size_t at = prototype.find('('); at < prototype.size(); ++at) {
        const char letter = prototype[at];
        optional = optional || letter == '{';
        if (isLetter(letter)) {
            if (!inName) {
                parameters.emplace_back();
                parameters.back().optional = optional;
            }
            parameters.back().name.push_back(letter);
        }
        inName = isLetter(letter);
    }
    return parameters;
}

void requireSameParameters(const FunctionText& text, const fmxkit::ExternalFunction& function)
{
    const std::vector<Parameter> expected = parametersOf(toUtf8(function.prototype));
    const bool same = std::equal(expected.begin(), expected.end(), text.parameters.begin(), text.parameters.end(),
                                 [](const Parameter& one, const Parameter& other) {
                                     return one.name == other.name && one.optional == other.optional;
                                 });
    const auto required =
        std::count_if(expected.begin(), expected.end(), [](const auto& one) { return !one.optional; });
    if (!same || required != function.minimumArguments ||
        static_cast<std::ptrdiff_t>(expected.size()) != function.maximumArguments) {
        throw TextError(text.name + ": text, prototype and registry disagree about the parameters");
    }
}

Entry readEntry(const std::filesystem::path& folder, const fmxkit::ExternalFunction& function)
{
    const std::string name = toUtf8(function.name);
    Entry entry;
    entry.text = parseFunctionText(name, readFile(folder / (name + ".md")));
    entry.id = function.id;
    entry.prototype = toUtf8(function.prototype);
    takeDescription(entry, toUtf8(function.description));
    requireSameParameters(entry.text, function);
    return entry;
}

void readIndex(const std::filesystem::path& file, Reference& reference)
{
    std::string* text = &reference.introduction;
    const std::string index = readFile(file);
    for (const std::string_view line : linesOf(index)) {
        if (line.starts_with("# ") && reference.title.empty()) {
            reference.title = line.substr(2);
        } else if (line.starts_with("## ")) {
            reference.chapters.push_back({std::string(line.substr(3)), {}, {}});
            text = &reference.chapters.back().text;
        } else {
            text->append(line).append("\n");
        }
    }
    reference.introduction = trimmed(reference.introduction);
    for (Chapter& chapter : reference.chapters) {
        chapter.text = trimmed(chapter.text);
    }
}

void requireRegistered(const std::filesystem::path& folder, const std::vector<fmxkit::ExternalFunction>& functions)
{
    std::set<std::string> names{"index"};
    for (const auto& function : functions) {
        names.insert(toUtf8(function.name));
    }
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        if (file.path().extension() == ".md" && !names.contains(file.path().stem())) {
            throw TextError(file.path().stem().string() + " is described, but not registered");
        }
    }
}

} // namespace

Reference readReference(const std::filesystem::path& folder, const std::vector<fmxkit::ExternalFunction>& functions)
{
    Reference reference;
    reference.messages = allMessages();
    readIndex(folder / "index.md", reference);
    requireRegistered(folder, functions);
    for (const auto& function : functions) {
        Entry entry = readEntry(folder, function);
        const auto chapter =
            std::find_if(reference.chapters.begin(), reference.chapters.end(),
                         [&](const Chapter& candidate) { return candidate.title == entry.text.chapter; });
        if (chapter == reference.chapters.end()) {
            throw TextError(entry.text.name + ": index.md has no chapter \"" + entry.text.chapter + "\"");
        }
        chapter->functions.push_back(std::move(entry));
    }
    return reference;
}

std::string readPageTemplate(const std::filesystem::path& folder)
{
    return readFile(folder / "page.html");
}

std::string platformsOf(const FunctionText& text)
{
    return text.platforms.empty() ? "The same on macOS and Linux." : text.platforms;
}

} // namespace fmxhost::reference
