#include "host/check/report.h"

#include "host/base/output.h"

#include <algorithm>

namespace fmxhost::check {
namespace {

constexpr std::array verdicts{Verdict::pass, Verdict::note,  Verdict::skipped,
                              Verdict::fail, Verdict::crash, Verdict::timeOut};
constexpr std::size_t verdictWidth = 8;
constexpr std::size_t indent = verdictWidth + 2;

std::string padded(std::string text, std::size_t width)
{
    return text.append(width > text.size() ? width - text.size() : 0, ' ');
}

Style styleOf(Verdict verdict)
{
    if (isFailure(verdict)) {
        return Style::error;
    }
    return verdict == Verdict::pass ? Style::pointer : Style::faint;
}

// A line of the plug-in's with nothing in it that moves a terminal's cursor or changes its colours.
std::string shownLine(std::string_view text)
{
    std::string line(text);
    std::replace_if(
        line.begin(), line.end(),
        [](char character) { return static_cast<unsigned char>(character) < ' ' || character == '\177'; }, ' ');
    return line;
}

std::string shownLines(std::string_view text)
{
    std::string lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.append(indent, ' ').append("| ").append(shownLine(text.substr(0, end))).append("\n");
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

Json describe(const TestResult& result)
{
    Json object{{"name", result.test->name},
                {"verdict", verdictName(result.verdict)},
                {"reasons", result.reasons},
                {"notes", result.notes},
                {"seconds", result.seconds}};
    if (isFailure(result.verdict)) {
        object["output"] = result.output;
    }
    return object;
}

} // namespace

void Report::add(const TestResult& result)
{
    ++counts_.at(static_cast<std::size_t>(result.verdict));
    if (options_.onlyFailed && !isFailure(result.verdict)) {
        return;
    }
    if (options_.json) {
        tests_.push_back(describe(result));
        return;
    }
    write(result);
    output_.flush();
}

void Report::write(const TestResult& result)
{
    const std::string verdict = verdictName(result.verdict);
    output_.write(styled(verdict, styleOf(result.verdict), wantsColour(output_.descriptor())));
    output_.write(std::string(verdictWidth + 2 - verdict.size(), ' ') + result.test->name + "\n");
    for (const auto* texts : {&result.reasons, &result.notes}) {
        for (const std::string& text : *texts) {
            output_.write(std::string(indent, ' ') + shownLine(text) + "\n");
        }
    }
    if (isFailure(result.verdict)) {
        output_.write(shownLines(result.output));
    }
}

bool Report::passed() const
{
    return std::none_of(verdicts.begin(), verdicts.end(),
                        [this](Verdict verdict) { return isFailure(verdict) && count(verdict) != 0; });
}

std::string Report::summary() const
{
    std::size_t all = 0;
    std::string text;
    for (const Verdict verdict : verdicts) {
        all += count(verdict);
        if (count(verdict) != 0) {
            text.append(text.empty() ? "" : ", ").append(std::to_string(count(verdict))).append(" ");
            text.append(verdictName(verdict));
        }
    }
    return std::to_string(all) + (all == 1 ? " test: " : " tests: ") + text;
}

void Report::finish(const std::filesystem::path& plugin, std::int16_t apiVersion)
{
    if (!options_.json) {
        output_.write(summary() + "\n");
        return;
    }
    Json counts = Json::object();
    for (const Verdict verdict : verdicts) {
        counts[verdictName(verdict)] = count(verdict);
    }
    output_.write(jsonText({{"plugin", plugin.string()},
                            {"api", apiVersion},
                            {"passed", passed()},
                            {"counts", std::move(counts)},
                            {"tests", std::move(tests_)}}) +
                  "\n");
}

std::string testList(bool json)
{
    std::size_t width = 0;
    for (const Test& test : allTests()) {
        width = std::max(width, std::string_view(test.name).size());
    }
    Json array = Json::array();
    std::string lines;
    for (const Test& test : allTests()) {
        array.push_back({{"name", test.name}, {"summary", test.summary}});
        lines.append(padded(test.name, width)).append("  ").append(test.summary).append("\n");
    }
    return json ? jsonLines(array) : lines;
}

} // namespace fmxhost::check
