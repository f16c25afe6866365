// exports, libraries: the plug-in as a file, by its section headers (elf(5); for versions of symbols the Linux
// Standard Base, "Symbol Versioning"). Mach-O files have a reader on every Mac.
#include "host/check/test.h"

#ifdef __APPLE__
namespace fmxhost::check {

void examineExports(Examination& examination)
{
    throw Skipped("it isn't read here: dyld_info -exports " + library(examination) + " shows it");
}

void examineLibraries(Examination& examination)
{
    throw Skipped("it isn't read here: dyld_info -dependents " + library(examination) + " shows it");
}

} // namespace fmxhost::check
#else
#include <gelf.h>
#include <libelf.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

namespace fmxhost::check {
namespace {

struct Library {
    std::vector<std::string> exports; // without the names that the linker itself makes
    std::vector<std::string> needed;
    std::vector<std::pair<std::string, std::string>> versions; // a library, and a version of its symbols that it needs
    std::set<std::string> searchPaths;
};

bool isExported(const GElf_Sym& symbol, std::string_view name)
{
    // Names of section ends and of version nodes are the linker's, and no other library looks for them.
    constexpr std::array<std::string_view, 5> linkers{"_init", "_fini", "__bss_start", "_edata", "_end"};
    const auto visibility = GELF_ST_VISIBILITY(symbol.st_other);
    return !name.empty() && symbol.st_shndx != SHN_UNDEF && GELF_ST_BIND(symbol.st_info) != STB_LOCAL &&
           (visibility == STV_DEFAULT || visibility == STV_PROTECTED) &&
           !(symbol.st_shndx == SHN_ABS && symbol.st_size == 0) &&
           std::find(linkers.begin(), linkers.end(), name) == linkers.end();
}

// Reads one section of a file after the other.
class LibraryReader {
public:
    explicit LibraryReader(Elf* elf) : elf_(elf)
    {
        for (Elf_Scn* section = elf_nextscn(elf, nullptr); section != nullptr; section = elf_nextscn(elf, section)) {
            GElf_Shdr header;
            if (gelf_getshdr(section, &header) == nullptr) {
                continue;
            }
            names_ = header.sh_link;
            Elf_Data* data = elf_getdata(section, nullptr);
            if (header.sh_type == SHT_DYNAMIC) {
                readDynamicSection(data);
            } else if (header.sh_type == SHT_DYNSYM) {
                readSymbols(data);
            } else if (header.sh_type == SHT_GNU_verneed) {
                readVersions(data, header.sh_info);
            }
        }
    }

    const Library& library() const { return library_; }

private:
    std::string name(std::size_t offset) const
    {
        const char* text = elf_strptr(elf_, names_, offset);
        return text != nullptr ? text : "";
    }

    void readDynamicSection(Elf_Data* data)
    {
        GElf_Dyn entry;
        for (int index = 0; gelf_getdyn(data, index, &entry) != nullptr && entry.d_tag != DT_NULL; ++index) {
            if (entry.d_tag == DT_NEEDED) {
                library_.needed.push_back(name(entry.d_un.d_val));
            } else if (entry.d_tag == DT_RPATH || entry.d_tag == DT_RUNPATH) {
                std::istringstream list(name(entry.d_un.d_val) + ":");
                for (std::string path; std::getline(list, path, ':');) {
                    library_.searchPaths.insert(path);
                }
            }
        }
    }

    void readSymbols(Elf_Data* data)
    {
        GElf_Sym symbol;
        for (int index = 0; gelf_getsym(data, index, &symbol) != nullptr; ++index) {
            if (std::string text = name(symbol.st_name); isExported(symbol, text)) {
                library_.exports.push_back(std::move(text));
            }
        }
    }

    void readVersions(Elf_Data* data, unsigned count)
    {
        GElf_Verneed need;
        int place = 0;
        for (unsigned number = 0; number < count && gelf_getverneed(data, place, &need) != nullptr; ++number) {
            GElf_Vernaux version;
            int part = place + static_cast<int>(need.vn_aux);
            for (unsigned index = 0; index < need.vn_cnt && gelf_getvernaux(data, part, &version) != nullptr; ++index) {
                library_.versions.emplace_back(name(need.vn_file), name(version.vna_name));
                part += static_cast<int>(version.vna_next);
            }
            place += static_cast<int>(need.vn_next);
        }
    }

    Elf* elf_;
    std::size_t names_ = 0; // the section of the current one's names
    Library library_;
};

Library readLibrary(const Examination& examination)
{
    std::ifstream stream(PluginFile(examination.settings().plugin).library(), std::ios::binary);
    std::string image{std::istreambuf_iterator<char>(stream), {}};
    elf_version(EV_CURRENT);
    const std::unique_ptr<Elf, decltype(&elf_end)> elf(elf_memory(image.data(), image.size()), &elf_end);
    GElf_Ehdr header;
    if (!elf || gelf_getehdr(elf.get(), &header) == nullptr) {
        throw std::runtime_error("it is no ELF file");
    }
    if (header.e_type != ET_DYN) {
        throw std::runtime_error("it is no shared library");
    }
    return LibraryReader(elf.get()).library();
}

// What a plain server has.
class Server {
public:
    explicit Server(const std::filesystem::path& list)
    {
        std::ifstream stream(list);
        if (list.empty() || !stream) {
            throw Skipped("there is no list of what a server has (--libraries): " + list.string());
        }
        for (std::string line; std::getline(stream, line);) {
            std::istringstream words(line.substr(0, line.find('#')));
            if (std::string name; words >> name) {
                libraries_[name].assign(std::istream_iterator<std::string>(words), {});
            }
        }
    }

    bool has(const std::string& library) const { return libraries_.contains(library); }

    // Of a library without versions in the list every one is taken to be there; of others those named, and older ones.
    bool has(const std::string& library, const std::string& version) const
    {
        const auto found = libraries_.find(library);
        return found == libraries_.end() || found->second.empty() ||
               std::any_of(found->second.begin(), found->second.end(), [&version](const std::string& known) {
                   return version == known ||
                          (kindOf(version) == kindOf(known) && strverscmp(version.c_str(), known.c_str()) < 0);
               });
    }

    std::string versionsOf(const std::string& library) const
    {
        std::string text;
        for (const std::string& version : libraries_.at(library)) {
            text += (text.empty() ? "" : ", ") + version;
        }
        return text;
    }

private:
    // "GLIBC_" of "GLIBC_2.35".
    static std::string_view kindOf(std::string_view version)
    {
        return version.substr(0, version.find_first_of("0123456789"));
    }

    std::map<std::string, std::vector<std::string>> libraries_;
};

} // namespace

void examineExports(Examination& examination)
{
    constexpr std::string_view entryPoint = "FMExternCallProc";
    std::vector<std::string> others = readLibrary(examination).exports;
    if (std::erase(others, entryPoint) == 0) {
        examination.fail("it doesn't export " + std::string(entryPoint));
    }
    for (const std::string& name : others) {
        examination.fail("it exports " + name + ", which may take the place of another plug-in's");
    }
}

void examineLibraries(Examination& examination)
{
    const Library plugin = readLibrary(examination);
    const Server server(examination.settings().libraries);
    for (const std::string& library : plugin.needed) {
        if (!server.has(library)) {
            examination.fail("it needs " + library + ", which no plain server has");
        }
    }
    for (const auto& [library, version] : plugin.versions) {
        if (!server.has(library, version)) {
            examination.fail("it needs " + std::string(version).append(" of ").append(library) +
                             "; a plain server has " + server.versionsOf(library));
        }
    }
    for (const std::string& folder : plugin.searchPaths) {
        if (!server.has(folder)) {
            // What lies beside the plug-in may be there; "Install Plug-In File" copies the plug-in alone.
            examination.tell(folder.starts_with('$') ? Event::note : Event::failure,
                             "it looks for libraries in \"" + folder + "\" (RPATH), which no plain server has");
        }
    }
}

} // namespace fmxhost::check
#endif
