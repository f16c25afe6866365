# Writes OUTPUT, a C++ source with what resources/embedded.h declares: the strings table TABLE, the file SCRIPT, and by their
# paths the program ARCHIVER and the PACKAGE_FOLDER.

# An entry of a .strings file, "key" = "value";, has the quotes and escapes of C++. What else stands there than entries and
# comments doesn't compile.
file(READ "${TABLE}" table)
string(REGEX REPLACE "/\\*([^*]|\\*[^/])*\\*/" "" table "${table}")
string(REGEX REPLACE "(\"[^\"]*\") = (\"([^\"\\]|\\\\.)*\");" "    {\\1, u\\2}," table "${table}")

file(SHA256 "${ARCHIVER}" archiver_digest)
file(SHA256 "${SCRIPT}" script_digest)
string(SHA256 digest "${archiver_digest}${script_digest}")
string(SUBSTRING "${digest}" 0 16 digest)

file(WRITE "${OUTPUT}" "#include \"resources/embedded.h\"

// The assembler reads the files (.incbin); a compiler takes long for arrays of this size.
#define EMBED(name, path)                                                                              \\
    __asm__(\".section .rodata\\n\" #name \"Begin: .incbin \\\"\" path \"\\\"\\n\" #name \"End: .byte 0\\n.previous\\n\"); \\
    extern \"C\" __attribute__((visibility(\"hidden\"))) const char name##Begin[], name##End[]
EMBED(folidexScript, \"${SCRIPT}\");
EMBED(folidexArchiver, \"${ARCHIVER}\");

namespace resources {

static constexpr Text table[] = {
${table}};
const std::span<const Text> strings{table};

static std::string_view between(const char* begin, const char* end)
{
    return {begin, static_cast<std::size_t>(end - begin)};
}
const std::string_view zipFuncs = between(folidexScriptBegin, folidexScriptEnd);
const std::string_view archiver = between(folidexArchiverBegin, folidexArchiverEnd);
const char* const archiverVersion = \"${digest}\";
const char* const packageFolder = \"${PACKAGE_FOLDER}\";

} // namespace resources
")
