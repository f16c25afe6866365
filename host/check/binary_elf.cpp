// ELF, by its dynamic segment: what the dynamic loader goes by, also in files without section headers. elf(5), and for
// versions and hash tables the Linux Standard Base, "Symbol Versioning", and the System V ABI, "Hash Table".
#include "host/check/binary.h"
#include "host/check/file_image.h"

#include <elf.h>
#include <link.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

namespace fmxhost::check {
namespace {

using Header = ElfW(Ehdr);
using Segment = ElfW(Phdr);
using DynamicEntry = ElfW(Dyn);
using Symbol = ElfW(Sym);
using VersionNeed = ElfW(Verneed);
using VersionAux = ElfW(Vernaux);
using Offset = FileImage::Offset;

constexpr unsigned char nativeClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;

// This program's own machine: the plug-in has to be made for the same.
#if defined(__x86_64__)
constexpr std::uint16_t nativeMachine = EM_X86_64;
#elif defined(__aarch64__)
constexpr std::uint16_t nativeMachine = EM_AARCH64;
#else
constexpr std::uint16_t nativeMachine = EM_NONE;
#endif

class Image : public FileImage {
public:
    explicit Image(std::vector<char> bytes) : FileImage(std::move(bytes)) { readHeader(); }

    // Where in the file a virtual address is.
    Offset offsetOf(Offset address) const
    {
        for (const Segment& segment : segments_) {
            if (segment.p_type == PT_LOAD && address >= segment.p_vaddr &&
                address - segment.p_vaddr < segment.p_filesz) {
                return segment.p_offset + (address - segment.p_vaddr);
            }
        }
        throw BinaryError("it refers to an address that it doesn't have");
    }

    const std::vector<DynamicEntry>& dynamicEntries() const { return dynamic_; }

    // The value of the first entry of that kind; 0 when there is none.
    Offset value(std::int64_t tag) const
    {
        const auto found = std::find_if(dynamic_.begin(), dynamic_.end(),
                                        [tag](const DynamicEntry& entry) { return entry.d_tag == tag; });
        return found != dynamic_.end() ? found->d_un.d_val : 0;
    }

    // A name of the dynamic string table.
    std::string name(Offset index) const { return textAt(offsetOf(value(DT_STRTAB)) + index); }

private:
    void readHeader();
    void readDynamicEntries(const Segment& segment);

    std::vector<Segment> segments_;
    std::vector<DynamicEntry> dynamic_;
};

void Image::readHeader()
{
    if (size() < sizeof(Header) || part(0, SELFMAG) != std::string_view(ELFMAG, SELFMAG)) {
        throw BinaryError("it is no ELF file");
    }
    const auto header = at<Header>(0);
    constexpr unsigned char nativeOrder = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? ELFDATA2LSB : ELFDATA2MSB;
    if (header.e_ident[EI_CLASS] != nativeClass || header.e_ident[EI_DATA] != nativeOrder ||
        (nativeMachine != EM_NONE && header.e_machine != nativeMachine)) {
        throw BinaryError("it is made for another kind of machine");
    }
    for (std::uint16_t index = 0; index < header.e_phnum; ++index) {
        segments_.push_back(at<Segment>(header.e_phoff + Offset{index} * header.e_phentsize));
    }
    for (const Segment& segment : segments_) {
        if (segment.p_type == PT_DYNAMIC) {
            readDynamicEntries(segment);
        }
    }
    if (dynamic_.empty()) {
        throw BinaryError("it is no shared library: it has no dynamic segment");
    }
}

void Image::readDynamicEntries(const Segment& segment)
{
    for (Offset offset = 0; offset + sizeof(DynamicEntry) <= segment.p_filesz; offset += sizeof(DynamicEntry)) {
        const auto entry = at<DynamicEntry>(segment.p_offset + offset);
        if (entry.d_tag == DT_NULL) {
            return;
        }
        dynamic_.push_back(entry);
    }
}

// The end of the last chain of a GNU hash table. Symbols before its first one are imports.
Offset symbolCountByGnuHash(const Image& image, Offset table)
{
    const auto bucketCount = image.at<std::uint32_t>(table);
    const auto first = image.at<std::uint32_t>(table + 4);
    const auto filterWords = image.at<std::uint32_t>(table + 8);
    const Offset buckets = table + 16 + Offset{filterWords} * sizeof(ElfW(Addr));
    const Offset chains = buckets + Offset{bucketCount} * 4;
    Offset last = 0;
    for (std::uint32_t bucket = 0; bucket < bucketCount; ++bucket) {
        last = std::max(last, Offset{image.at<std::uint32_t>(buckets + Offset{bucket} * 4)});
    }
    if (last < first) {
        return first;
    }
    constexpr std::uint32_t endOfChain = 1;
    while ((image.at<std::uint32_t>(chains + (last - first) * 4) & endOfChain) == 0) {
        ++last;
    }
    return last + 1;
}

Offset symbolCount(const Image& image)
{
    if (const Offset table = image.value(DT_GNU_HASH); table != 0) {
        return symbolCountByGnuHash(image, image.offsetOf(table));
    }
    if (const Offset table = image.value(DT_HASH); table != 0) {
        return image.at<std::uint32_t>(image.offsetOf(table) + 4);
    }
    return 0;
}

bool isExported(const Symbol& symbol)
{
    const unsigned char binding = ELF64_ST_BIND(symbol.st_info);
    const unsigned char visibility = ELF64_ST_VISIBILITY(symbol.st_other);
    return symbol.st_name != 0 && symbol.st_shndx != SHN_UNDEF && binding != STB_LOCAL &&
           (visibility == STV_DEFAULT || visibility == STV_PROTECTED);
}

// Names of section ends and of version nodes are the linker's, and no other library looks for them.
bool isMadeByLinker(const Symbol& symbol, std::string_view name)
{
    constexpr std::array<std::string_view, 5> names{"_init", "_fini", "__bss_start", "_edata", "_end"};
    return std::find(names.begin(), names.end(), name) != names.end() ||
           (symbol.st_shndx == SHN_ABS && symbol.st_size == 0);
}

std::vector<std::string> exportsOf(const Image& image)
{
    std::vector<std::string> names;
    const Offset count = symbolCount(image);
    if (count == 0) {
        return names;
    }
    const Offset table = image.offsetOf(image.value(DT_SYMTAB));
    for (Offset index = 0; index < count; ++index) {
        const auto symbol = image.at<Symbol>(table + index * sizeof(Symbol));
        if (!isExported(symbol)) {
            continue;
        }
        std::string name = image.name(symbol.st_name);
        if (!isMadeByLinker(symbol, name)) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

std::vector<NeededVersion> neededVersionsOf(const Image& image)
{
    std::vector<NeededVersion> versions;
    const Offset count = image.value(DT_VERNEEDNUM);
    if (count == 0) {
        return versions;
    }
    Offset place = image.offsetOf(image.value(DT_VERNEED));
    for (Offset index = 0; index < count; ++index) {
        const auto need = image.at<VersionNeed>(place);
        const std::string library = image.name(need.vn_file);
        Offset auxiliary = place + need.vn_aux;
        for (unsigned number = 0; number < need.vn_cnt; ++number) {
            const auto version = image.at<VersionAux>(auxiliary);
            versions.push_back({library, image.name(version.vna_name)});
            auxiliary += version.vna_next;
            if (version.vna_next == 0) {
                break;
            }
        }
        place += need.vn_next;
        if (need.vn_next == 0) {
            break;
        }
    }
    return versions;
}

void appendSearchPaths(std::vector<std::string>& paths, std::string_view list)
{
    while (true) {
        const std::size_t end = list.find(':');
        paths.emplace_back(list.substr(0, end));
        if (end == std::string_view::npos) {
            return;
        }
        list.remove_prefix(end + 1);
    }
}

} // namespace

Binary readBinary(const std::filesystem::path& file)
{
    const Image image(FileImage::contents(file));
    Binary binary;
    for (const DynamicEntry& entry : image.dynamicEntries()) {
        if (entry.d_tag == DT_NEEDED) {
            binary.neededLibraries.push_back(image.name(entry.d_un.d_val));
        } else if (entry.d_tag == DT_RPATH || entry.d_tag == DT_RUNPATH) {
            appendSearchPaths(binary.searchPaths, image.name(entry.d_un.d_val));
        }
    }
    binary.exports = exportsOf(image);
    binary.neededVersions = neededVersionsOf(image);
    return binary;
}

} // namespace fmxhost::check
