// Paths as text beside a plain reading of them: absolute or not, and a list of components. File URIs there and back.
//
// Fields of an input: a path, a component.
#include "fuzz/target.h"

#include "platform/linux/desktop/uri.h"
#include "platform/path_text.h"

namespace {

using platform::PathText;
using platform::PathView;

struct Path {
    explicit Path(PathView text) : isAbsolute(text.starts_with(u'/')) { append(text); }

    void append(PathView text)
    {
        PathText component;
        for (const char16_t unit : PathText(text) + u'/') {
            if (unit != u'/') {
                component += unit;
            } else if (!component.empty()) {
                components.push_back(component);
                component.clear();
            }
        }
    }

    PathText text() const
    {
        PathText joined(isAbsolute ? u"/" : u"");
        for (const PathText& component : components) {
            joined += &component == components.data() ? component : u"/" + component;
        }
        return joined;
    }

    bool isAbsolute;
    std::vector<PathText> components;
};

void components(PathView text, PathView component)
{
    const Path path(text);
    PathText last = path.text();
    Path folder = path;
    if (!path.components.empty()) {
        last = path.components.back();
        folder.components.pop_back();
    }
    FUZZ_CHECK(platform::lastComponent(text) == last);
    FUZZ_CHECK(platform::deletingLastComponent(text) == folder.text());

    Path joined(text.empty() ? component : text);
    if (!text.empty()) {
        joined.append(component);
    }
    FUZZ_CHECK(platform::appendingComponent(text, component) == (component.empty() ? PathText(text) : joined.text()));
    if (!path.components.empty()) {
        FUZZ_CHECK(platform::appendingComponent(platform::deletingLastComponent(text), last) == path.text());
    }
}

bool isPlainText(std::string_view bytes)
{
    return bytes.find('\0') == std::string_view::npos && fuzz::referenceUtf8(fuzz::referenceUtf16(bytes)) == bytes;
}

void uris(std::string_view bytes)
{
    using platform::linux_os::pathFromFileUri;
    using platform::linux_os::percentEncoded;
    if (const auto path = pathFromFileUri(bytes)) {
        FUZZ_CHECK(path->starts_with('/') && (*path == "/" || !path->ends_with('/')) && isPlainText(*path));
        FUZZ_CHECK(pathFromFileUri("file://" + percentEncoded(*path)) == path);
    }
    std::string path = "/" + std::string(bytes);
    const std::string encoded = percentEncoded(path);
    FUZZ_CHECK(encoded.find_first_of(" %?#\"\\;,'") == encoded.find('%'));
    while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back();
    }
    for (const char* start : {"file://", "FILE:", "file://LocalHost"}) {
        const bool isHost = std::string_view(start) == "FILE:" && encoded.starts_with("//");
        if (!isHost) {
            FUZZ_CHECK(pathFromFileUri(start + encoded) == (isPlainText(path) ? std::optional(path) : std::nullopt));
        }
    }
}

} // namespace

void fuzz::test(std::string_view input)
{
    const auto parts = fields(input, 2);
    components(anyUnits(parts[0]), anyUnits(parts[1]));
    uris(parts[0]);
}
