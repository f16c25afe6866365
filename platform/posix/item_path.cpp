#include "platform/posix/item_path.h"

#include "platform/posix/failure.h"
#include "platform/unicode.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <utility>

namespace platform::posix {

std::optional<ItemPath> ItemPath::of(PathView path)
{
    std::optional<std::string> bytes = fileSystemRepresentation(path);
    return bytes ? ofBytes(std::move(*bytes)) : std::nullopt;
}

std::optional<ItemPath> ItemPath::ofBytes(std::string path)
{
    if (path.empty()) {
        return std::nullopt;
    }
    ItemPath item;
    item.text = std::move(path);
    item.endsInSlash = item.text.back() == '/';
    const std::size_t last = item.text.find_last_not_of('/');
    if (last == std::string::npos) {
        item.text = item.folder = "/";
        item.name = ".";
        return item;
    }
    item.text.resize(last + 1);
    const std::size_t slash = item.text.rfind('/');
    if (slash == std::string::npos) {
        item.folder = ".";
        item.name = item.text;
    } else {
        item.folder = item.text.substr(0, slash + 1);
        item.name = item.text.substr(slash + 1);
    }
    return item;
}

std::optional<std::string> readLink(int folder, const char* name)
{
    std::string text(PATH_MAX, '\0');
    const auto size = readlinkat(folder, name, text.data(), text.size());
    if (size < 0) {
        return std::nullopt;
    }
    text.resize(static_cast<std::size_t>(size));
    return text;
}

Outcome locate(std::string_view action, PathView path, Location& location)
{
    std::optional<ItemPath> item = ItemPath::of(path);
    if (!item) {
        return nothingThere(action, path);
    }
    location.path = std::move(*item);
    if (location.path.text.size() >= PATH_MAX) {
        // From an open folder it could be reached, but by nobody else afterwards.
        return systemFailure(action, location.path.text, ENAMETOOLONG);
    }
    location.folder = openAt(AT_FDCWD, location.path.folder.c_str(), asPlace);
    return location.folder ? Outcome::success() : systemFailure(action, location.path.text, errno);
}

Outcome nothingThere(std::string_view action, PathView path)
{
    std::string shown;
    for (const char16_t unit : path) {
        // Surrogates, paired or not, and NUL have no place in a message about a path that can't exist.
        const bool printable = unit != 0 && (unit < 0xD800 || unit > 0xDFFF);
        shown += utf8FromUtf16(std::u16string(1, printable ? unit : char16_t{0xFFFD})).value_or("");
    }
    return systemFailure(action, shown, ENOENT);
}

} // namespace platform::posix
