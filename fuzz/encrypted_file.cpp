// A file is encrypted, changed and decrypted: unchanged it comes back, changed it is damaged, whatever was changed, and
// never a wrong password; with another password it is that. Keys are as good as passwords here, for deriving them takes
// time.
//
// Fields of an input: the content, pairs of bytes (a place in the encrypted file and what is XORed there), what stands
// behind its end. An odd byte of the pairs is how much is cut off.
#include "fuzz/target.h"

#include "archiver/encrypted_file.h"
#include "archiver/failure.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

using archiver::Exit;

archiver::MasterKey keyOf(std::string_view password, std::span<const std::byte>)
{
    archiver::MasterKey key{};
    key[0] = static_cast<std::byte>(password.size());
    return key;
}

const std::string& folder()
{
    static const std::string made = [] {
        std::string pattern = "/dev/shm/fuzz-XXXXXX"; // results are flushed: in memory that takes no time
        const char* const path = mkdtemp(pattern.data());
        return std::string(path != nullptr ? path : "/nowhere") + "/";
    }();
    static const int atEnd = std::atexit([] { std::filesystem::remove_all(folder()); });
    return atEnd == 0 ? made : made;
}

std::string read(const char* name)
{
    std::ifstream file(folder() + name, std::ios::binary);
    return {std::istreambuf_iterator(file), {}};
}

void write(const char* name, std::string_view content)
{
    std::ofstream(folder() + name, std::ios::binary) << content;
}

Exit decrypted(const char* password)
{
    try {
        archiver::decryptFile({archiver::Verb::decrypt, folder(), folder(), "encrypted", "decrypted", password}, keyOf);
        return Exit::done;
    } catch (const archiver::Failure& failure) {
        return failure.exit();
    }
}

} // namespace

void fuzz::test(std::string_view input)
{
    const auto parts = fields(input, 3);
    write("plain", parts[0]);
    archiver::encryptFile({archiver::Verb::encrypt, folder(), folder(), "plain", "encrypted", "a"}, keyOf);
    const std::string whole = read("encrypted");
    FUZZ_CHECK(decrypted("a") == Exit::done && read("decrypted") == parts[0]);
    FUZZ_CHECK(decrypted("another") == Exit::wrongPassword && read("decrypted") == parts[0]);

    std::string changed = whole;
    for (std::size_t at = 0; at + 1 < parts[1].size(); at += 2) {
        char& byte = changed[static_cast<unsigned char>(parts[1][at]) % changed.size()];
        byte = static_cast<char>(byte ^ parts[1][at + 1]);
    }
    if (parts[1].size() % 2 == 1) {
        changed.resize(changed.size() -
                       std::min<std::size_t>(changed.size(), static_cast<unsigned char>(parts[1].back())));
    }
    write("encrypted", changed.append(parts[2]));
    FUZZ_CHECK(decrypted("a") == (changed == whole ? Exit::done : Exit::damaged));
    FUZZ_CHECK(read("decrypted") == parts[0]);
}
