#include "bench/workload.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace folidex::bench {
namespace {

namespace fs = std::filesystem;

class ProcessFolder {
public:
    ProcessFolder()
    {
        const char* chosen = std::getenv("FOLIDEX_BENCH_FOLDER");
        std::string pattern = fs::path(chosen != nullptr ? chosen : fs::temp_directory_path()) / "folidex-bench-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), pattern);
        }
        path_ = pattern;
    }
    ~ProcessFolder()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    ProcessFolder(const ProcessFolder&) = delete;
    ProcessFolder& operator=(const ProcessFolder&) = delete;

    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

void writeFile(const fs::path& path, std::size_t size)
{
    static const std::string content = [] {
        std::string bytes(std::size_t{1024} * 1024, '\0');
        std::generate(bytes.begin(), bytes.end(), [state = 1U]() mutable {
            state = state * 1664525U + 1013904223U;
            return static_cast<char>(state >> 24);
        });
        return bytes;
    }();
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    for (std::size_t written = 0; file >= 0 && written < size;) {
        const ssize_t bytes = write(file, content.data(), std::min(content.size(), size - written));
        if (bytes < 0) {
            throw std::system_error(errno, std::generic_category(), path.string());
        }
        written += static_cast<std::size_t>(bytes);
    }
    if (file < 0 || close(file) != 0) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
}

// `size(n)`: of the n-th file.
template <typename Size>
void makeFiles(const fs::path& folder, int folders, int filesEach, Size&& size)
{
    int number = 0;
    for (int i = 0; i < folders; ++i) {
        const fs::path place = folders == 1 ? folder : folder / ("folder " + std::to_string(i));
        fs::create_directories(place);
        for (int j = 0; j < filesEach; ++j, ++number) {
            writeFile(place / ("document " + std::to_string(number) + ".txt"), size(number));
        }
    }
}

std::string once(const char* kind)
{
    std::string path = scratch(kind);
    if (!fs::exists(path)) {
        makeWorkload(kind, path);
    }
    return path;
}

} // namespace

std::string scratch(const std::string& name)
{
    static const ProcessFolder folder;
    return folder.path() / name;
}

std::string flatFolder()
{
    return once("flat");
}

std::string wideTree()
{
    return once("tree");
}

std::string smallFiles()
{
    return once("small");
}

std::string largeFile()
{
    return once("large");
}

void makeWorkload(const std::string& kind, const std::string& path)
{
    if (kind == "flat") {
        makeFiles(path, 1, 200'000, [](int) { return std::size_t{0}; });
    } else if (kind == "tree") {
        makeFiles(path, 2'000, 100, [](int) { return std::size_t{1024}; });
    } else if (kind == "small") {
        makeFiles(path, 200, 100, [](int number) { return static_cast<std::size_t>(1024 * (1 + number % 4)); });
    } else if (kind == "large") {
        writeFile(path, std::size_t{1} << 30);
    } else {
        throw std::invalid_argument("no workload " + kind);
    }
    // What the kernel still has to write would disturb what is measured next.
    sync();
}

} // namespace folidex::bench
