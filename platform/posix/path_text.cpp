#include "platform/path_text.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

namespace platform {

namespace {

constexpr char slash = '/';

// Without doubled slashes and, but for the root, without a trailing one.
template <typename Text>
Text tidied(const Text& path)
{
    Text text;
    text.reserve(path.size());
    for (const auto unit : path) {
        if (unit != slash || text.empty() || text.back() != slash) {
            text.push_back(unit);
        }
    }
    if (text.size() > 1 && text.back() == slash) {
        text.pop_back();
    }
    return text;
}

} // namespace

std::string homeInUserDatabase()
{
    std::vector<char> buffer(1024);
    passwd entry{};
    passwd* found = nullptr;
    int error = 0;
    while ((error = getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found)) == ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    if (error != 0 || found == nullptr || found->pw_dir == nullptr || found->pw_dir[0] != '/') {
        return {};
    }
    return found->pw_dir;
}

PathText lastComponent(PathView path)
{
    PathText text = tidied(PathText(path));
    const std::size_t position = text.rfind(slash);
    if (text.size() > 1 && position != PathText::npos) {
        text.erase(0, position + 1);
    }
    return text;
}

PathText deletingLastComponent(PathView path)
{
    PathText text = tidied(PathText(path));
    const std::size_t position = text.rfind(slash);
    if (position == PathText::npos) {
        return {};
    }
    text.erase(position == 0 ? 1 : position);
    return text;
}

PathText appendingComponent(PathView path, PathView component)
{
    if (component.empty()) {
        return PathText(path);
    }
    if (path.empty()) {
        return tidied(PathText(component));
    }
    return tidied(PathText(path).append(1, slash).append(component));
}

std::string standardized(std::string_view path)
{
    const char* variable = std::getenv("HOME");
    const std::string home = variable != nullptr && variable[0] == '/' ? variable : homeInUserDatabase();
    return home.empty() ? std::string(path) : tidied(home + std::string(path.substr(1)));
}

} // namespace platform
