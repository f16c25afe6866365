// Mach-O, by its load commands and the trie of its exports: what dyld goes by. Names and layouts are those of the SDK's
// mach-o/loader.h and fat.h, written out here so that the reader is tested where there is no SDK.
#include "host/check/binary.h"
#include "host/check/file_image.h"

namespace fmxhost::check {
namespace {

using Offset = FileImage::Offset;

constexpr std::uint32_t fatMagic = 0xCAFEBABE;
constexpr std::uint32_t fatMagic64 = 0xCAFEBABF;
constexpr std::uint32_t machMagic64 = 0xFEEDFACF;
#if defined(__x86_64__)
constexpr std::uint32_t nativeCpu = 0x01000007; // CPU_TYPE_X86_64
#else
constexpr std::uint32_t nativeCpu = 0x0100000C; // CPU_TYPE_ARM64
#endif
constexpr std::uint32_t dynamicLibrary = 6; // MH_DYLIB
constexpr std::uint32_t loadableBundle = 8; // MH_BUNDLE

struct Header { // mach_header_64
    std::uint32_t magic;
    std::uint32_t cpuType;
    std::uint32_t cpuSubtype;
    std::uint32_t fileType;
    std::uint32_t commandCount;
    std::uint32_t commandsSize;
    std::uint32_t flags;
    std::uint32_t reserved;
};

struct Command { // load_command, and the first field after it, where most have an offset
    std::uint32_t kind;
    std::uint32_t size;
    std::uint32_t offset;
};

enum CommandKind : std::uint32_t {
    loadDylib = 0xC,
    loadWeakDylib = 0x80000018,
    runPath = 0x8000001C,
    reexportDylib = 0x8000001F,
    lazyLoadDylib = 0x20,
    dyldInfo = 0x22,
    dyldInfoOnly = 0x80000022,
    loadUpwardDylib = 0x80000023,
    exportsTrie = 0x80000033, // a linkedit_data_command
};
constexpr Offset exportsOfDyldInfo = 40; // where dyld_info_command has the trie's offset and size
constexpr Offset exportsOfLinkEdit = 8;  // where linkedit_data_command has them

std::uint32_t bigEndian(const FileImage& image, Offset offset)
{
    std::uint32_t value = 0;
    for (const char byte : image.part(offset, 4)) {
        value = value << 8 | static_cast<unsigned char>(byte);
    }
    return value;
}

// Where this machine's Mach-O file begins: 0, or its slice of a file for several.
Offset nativeSlice(const FileImage& image)
{
    const std::uint32_t magic = bigEndian(image, 0);
    if (magic != fatMagic && magic != fatMagic64) {
        return 0;
    }
    const Offset entrySize = magic == fatMagic ? 20 : 32; // fat_arch, fat_arch_64
    const std::uint32_t count = bigEndian(image, 4);
    for (std::uint32_t index = 0; index < count; ++index) {
        const Offset entry = 8 + index * entrySize;
        if (bigEndian(image, entry) == nativeCpu) {
            return magic == fatMagic ? Offset{bigEndian(image, entry + 8)}
                                     : Offset{bigEndian(image, entry + 8)} << 32 | bigEndian(image, entry + 12);
        }
    }
    throw BinaryError("it is made for other kinds of machines");
}

// The prefix tree of exported names (mach-o/loader.h, "The symbols exported by a dylib are encoded in a trie").
class ExportsTrie {
public:
    explicit ExportsTrie(std::string_view bytes) : bytes_(bytes) {}

    std::vector<std::string> names()
    {
        if (!bytes_.empty()) {
            pending_.push_back({0, {}});
        }
        // No node has two ways to it.
        for (std::size_t visited = 0; !pending_.empty(); ++visited) {
            if (visited > bytes_.size()) {
                throw BinaryError("its exports go round in circles");
            }
            readNode();
        }
        return std::move(names_);
    }

private:
    struct Node {
        std::size_t offset;
        std::string prefix;
    };

    void readNode()
    {
        const Node node = std::move(pending_.back());
        pending_.pop_back();
        place_ = node.offset;
        const std::uint64_t terminalSize = number();
        if (terminalSize > bytes_.size() - place_) {
            throw BinaryError("its exports end before what they refer to");
        }
        if (terminalSize != 0) {
            names_.push_back(node.prefix);
        }
        place_ += static_cast<std::size_t>(terminalSize);
        for (unsigned children = byte(); children > 0; --children) {
            std::string prefix = node.prefix;
            while (const unsigned letter = byte()) {
                prefix += static_cast<char>(letter);
            }
            pending_.push_back({static_cast<std::size_t>(number()), std::move(prefix)});
        }
    }

    unsigned byte()
    {
        if (place_ >= bytes_.size()) {
            throw BinaryError("its exports end before what they refer to");
        }
        return static_cast<unsigned char>(bytes_[place_++]);
    }

    // An unsigned LEB128.
    std::uint64_t number()
    {
        std::uint64_t value = 0;
        for (unsigned shift = 0; shift < 64; shift += 7) {
            const unsigned part = byte();
            value |= std::uint64_t{part & 0x7FU} << shift;
            if ((part & 0x80U) == 0) {
                return value;
            }
        }
        throw BinaryError("its exports have a number that is too large");
    }

    std::string_view bytes_;
    std::size_t place_ = 0;
    std::vector<Node> pending_;
    std::vector<std::string> names_;
};

// C names have an underscore before them.
std::string withoutUnderscore(const std::string& name)
{
    return name.starts_with('_') ? name.substr(1) : name;
}

void readExports(const FileImage& image, Offset slice, Offset place, Binary& binary)
{
    const auto offset = image.at<std::uint32_t>(place);
    const auto size = image.at<std::uint32_t>(place + 4);
    for (const std::string& name : ExportsTrie(image.part(slice + offset, size)).names()) {
        binary.exports.push_back(withoutUnderscore(name));
    }
}

void readCommand(const FileImage& image, Offset slice, Offset place, Binary& binary)
{
    const auto command = image.at<Command>(place);
    switch (command.kind) {
    case loadDylib:
    case loadWeakDylib:
    case reexportDylib:
    case lazyLoadDylib:
    case loadUpwardDylib:
        binary.neededLibraries.push_back(image.textAt(place + command.offset));
        break;
    case runPath:
        binary.searchPaths.push_back(image.textAt(place + command.offset));
        break;
    case dyldInfo:
    case dyldInfoOnly:
        readExports(image, slice, place + exportsOfDyldInfo, binary);
        break;
    case exportsTrie:
        readExports(image, slice, place + exportsOfLinkEdit, binary);
        break;
    default:
        break;
    }
}

} // namespace

Binary readBinary(const std::filesystem::path& file)
{
    const FileImage image(FileImage::contents(file));
    const Offset slice = nativeSlice(image);
    const auto header = image.at<Header>(slice);
    if (header.magic != machMagic64) {
        throw BinaryError("it is no Mach-O file");
    }
    if (header.cpuType != nativeCpu) {
        throw BinaryError("it is made for another kind of machine");
    }
    if (header.fileType != dynamicLibrary && header.fileType != loadableBundle) {
        throw BinaryError("it is no library");
    }
    Binary binary;
    Offset place = slice + sizeof(Header);
    for (std::uint32_t index = 0; index < header.commandCount; ++index) {
        readCommand(image, slice, place, binary);
        const std::uint32_t size = image.at<Command>(place).size;
        if (size < sizeof(Command)) {
            throw BinaryError("it has a load command without an end");
        }
        place += size;
    }
    return binary;
}

} // namespace fmxhost::check
