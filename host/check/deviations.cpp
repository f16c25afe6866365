#include "host/check/deviations.h"

#include <algorithm>
#include <array>
#include <string>

namespace fmxhost::check {
namespace {

constexpr std::uint32_t folidex = 'K' << 24 | 'O' << 16 | 'R' << 8 | 'B';

struct Deviation {
    std::uint32_t pluginId;
    std::string_view test;
    EntryKind kind;
    short id;
    std::string_view reason;
};

constexpr std::string_view outsideOfRanges = "by design: its shut-down covers the IDs 1 to 39 and 150 to 200";
constexpr std::string_view withoutParameters = "by design: it has no parameters there, not even a target";

constexpr std::array<Deviation, 5> deviations{{
    {folidex, "shut-down", EntryKind::function, 201, outsideOfRanges},
    {folidex, "shut-down", EntryKind::scriptStep, 201, outsideOfRanges},
    {folidex, "script-steps", EntryKind::scriptStep, 194, withoutParameters},
    {folidex, "script-steps", EntryKind::scriptStep, 200, withoutParameters},
    {folidex, "script-steps", EntryKind::scriptStep, 201, withoutParameters},
}};

} // namespace

void reportDeviation(const Examination& examination, std::string_view test, std::uint32_t pluginId, EntryKind kind,
                     short id, std::string_view text)
{
    const auto* known = std::find_if(deviations.begin(), deviations.end(), [&](const Deviation& deviation) {
        return deviation.pluginId == pluginId && deviation.test == test && deviation.kind == kind && deviation.id == id;
    });
    if (known == deviations.end()) {
        examination.fail(text);
    } else {
        examination.note(std::string(text).append(" (").append(known->reason).append(")"));
    }
}

} // namespace fmxhost::check
