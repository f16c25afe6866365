// exports, libraries: the plug-in as a file, by its section headers (elf(5); for versions of symbols the Linux
// Standard Base, "Symbol Versioning"). Mach-O files have a reader on every Mac.
#include "host/check/test.h"

#ifdef __APPLE__
namespace fmxhost::check {
namespace {

[[noreturn]] void nameTheReader(const Examination& examination, const std::string& option)
{
    throw Skipped("it isn't read here: dyld_info " + option + " " +
                  PluginFile(examination.options().plugin).library.string() + " shows it");
}

} // namespace

void examineExports(Examination& examination)
{
    nameTheReader(examination, "-exports");
}

void examineLibraries(Examination& examination)
{
    nameTheReader(examination, "-dependents");
}

} // namespace fmxhost::check
#else
#include <gelf.h>
#include <libelf.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <istream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

namespace fmxhost::check {
namespace {

// A library file, one section of it after the other.
class Library {
public:
    explicit Library(const Examination& examination)
    {
        std::ifstream stream(PluginFile(examination.options().plugin).library, std::ios::binary);
        image_.assign(std::istreambuf_iterator<char>(stream), {});
        elf_version(EV_CURRENT);
        elf_.reset(elf_memory(image_.data(), image_.size()));
        GElf_Ehdr header;
        if (!elf_ || gelf_getehdr(elf_.get(), &header) == nullptr) {
            throw std::runtime_error("it is no ELF file");
        }
        if (header.e_type != ET_DYN) {
            throw std::runtime_error("it is no shared library");
        }
        GElf_Shdr section;
        for (Elf_Scn* next = nullptr; (next = elf_nextscn(elf_.get(), next)) != nullptr;) {
            if (gelf_getshdr(next, &section) != nullptr) {
                names_ = section.sh_link;
                read(section, elf_getdata(next, nullptr));
            }
        }
        if (!isDynamic_) {
            throw std::runtime_error("it is cut short, or damaged");
        }
    }

    std::vector<std::string> exports; // without the names that the linker itself makes
    std::vector<std::string> needed;
    std::vector<std::pair<std::string, std::string>> versions; // a library, and a version of its symbols that it needs
    std::set<std::string> searchPaths;

private:
    void read(const GElf_Shdr& section, Elf_Data* data)
    {
        GElf_Dyn entry;
        for (int index = 0; section.sh_type == SHT_DYNAMIC && gelf_getdyn(data, index, &entry) != nullptr; ++index) {
            isDynamic_ = true;
            if (entry.d_tag == DT_NEEDED) {
                needed.push_back(name(entry.d_un.d_val));
            } else if (entry.d_tag == DT_RPATH || entry.d_tag == DT_RUNPATH) {
                std::istringstream list(name(entry.d_un.d_val) + ":");
                for (std::string path; std::getline(list, path, ':');) {
                    searchPaths.insert(path);
                }
            }
        }
        GElf_Sym symbol;
        for (int index = 0; section.sh_type == SHT_DYNSYM && gelf_getsym(data, index, &symbol) != nullptr; ++index) {
            if (isExported(symbol)) {
                exports.push_back(name(symbol.st_name));
            }
        }
        GElf_Verneed need;
        int place = section.sh_type == SHT_GNU_verneed ? 0 : -1;
        while (place >= 0 && gelf_getverneed(data, place, &need) != nullptr) {
            GElf_Vernaux version;
            int part = place + static_cast<int>(need.vn_aux);
            for (unsigned index = 0; index < need.vn_cnt && gelf_getvernaux(data, part, &version) != nullptr; ++index) {
                versions.emplace_back(name(need.vn_file), name(version.vna_name));
                part += static_cast<int>(version.vna_next);
            }
            place = need.vn_next != 0 ? place + static_cast<int>(need.vn_next) : -1;
        }
    }

    // Names of section ends and of version nodes are the linker's, and no other library looks for them.
    bool isExported(const GElf_Sym& symbol) const
    {
        static const std::set<std::string> linkers{"", "_init", "_fini", "__bss_start", "_edata", "_end"};
        const auto visibility = GELF_ST_VISIBILITY(symbol.st_other);
        return symbol.st_shndx != SHN_UNDEF && GELF_ST_BIND(symbol.st_info) != STB_LOCAL &&
               (visibility == STV_DEFAULT || visibility == STV_PROTECTED) &&
               !(symbol.st_shndx == SHN_ABS && symbol.st_size == 0) && !linkers.contains(name(symbol.st_name));
    }

    std::string name(std::size_t offset) const
    {
        const char* text = elf_strptr(elf_.get(), names_, offset);
        return text != nullptr ? text : "";
    }

    std::string image_;
    std::unique_ptr<Elf, int (*)(Elf*)> elf_{nullptr, &elf_end};
    bool isDynamic_ = false; // as every shared library is
    std::size_t names_ = 0;  // the section of the current one's names
};

// What a plain server has: libraries with the newest versions of their symbols, and folders of libraries.
std::map<std::string, std::string> readServer(const std::filesystem::path& list)
{
    std::ifstream stream(list);
    if (list.empty() || !stream) {
        throw Skipped("there is no list of what a server has (--libraries): " + list.string());
    }
    std::map<std::string, std::string> server;
    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        if (std::string name; words >> name) {
            std::string& versions = server[name];
            std::getline(words >> std::ws, versions);
            versions.erase(versions.find_last_not_of(' ') + 1);
        }
    }
    return server;
}

// Without versions that are known every one is taken to be there; else those, and older ones of their kind, which is
// "GLIBC_" of "GLIBC_2.35".
bool isAmong(const std::string& version, const std::string& known)
{
    const auto kindOf = [](const std::string& text) { return text.substr(0, text.find_first_of("0123456789")); };
    std::istringstream words(known);
    for (std::string newest; words >> newest;) {
        if (version == newest ||
            (kindOf(version) == kindOf(newest) && strverscmp(version.c_str(), newest.c_str()) < 0)) {
            return true;
        }
    }
    return known.empty();
}

} // namespace

void examineExports(Examination& examination)
{
    constexpr std::string_view entryPoint = "FMExternCallProc";
    std::vector<std::string> others = Library(examination).exports;
    examination.expect(std::erase(others, entryPoint) > 0, "it doesn't export " + std::string(entryPoint));
    for (const std::string& name : others) {
        examination.fail("it exports " + name + ", which may take the place of another plug-in's");
    }
}

void examineLibraries(Examination& examination)
{
    const Library plugin(examination);
    const auto server = readServer(examination.options().libraries);
    for (const std::string& library : plugin.needed) {
        examination.expect(server.contains(library), "it needs " + library + ", which no plain server has");
    }
    for (const auto& [library, version] : plugin.versions) {
        const auto known = server.find(library);
        if (known != server.end() && !isAmong(version, known->second)) {
            examination.fail("it needs " + std::string(version).append(" of ").append(library) +
                             "; a plain server has " + known->second);
        }
    }
    for (const std::string& folder : plugin.searchPaths) {
        if (!server.contains(folder)) {
            // What lies beside the plug-in may be there; "Install Plug-In File" copies the plug-in alone.
            const bool isBeside = folder.starts_with('$');
            examination.find(isBeside ? Verdict::note : Verdict::fail,
                             "it looks for libraries in \"" + folder + "\" (RPATH), which " +
                                 (isBeside ? "goes by the plug-in's own folder" : "no plain server has"));
        }
    }
}

} // namespace fmxhost::check
#endif
