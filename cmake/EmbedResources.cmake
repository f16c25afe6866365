# Writes OUTPUT, a C++ source with what resources/embedded.h declares: the strings table TABLE and the file SCRIPT.

# An entry of a .strings file, "key" = "value";, has the quotes and escapes of C++. What else stands there than entries and
# comments doesn't compile.
file(READ "${TABLE}" table)
string(REGEX REPLACE "/\\*([^*]|\\*[^/])*\\*/" "" table "${table}")
string(REGEX REPLACE "(\"[^\"]*\") = (\"([^\"\\]|\\\\.)*\");" "    {\\1, u\\2}," table "${table}")

file(READ "${SCRIPT}" script HEX)
string(LENGTH "${script}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "(................................)" "\\1\n" script "${script}")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," script "${script}")

file(WRITE "${OUTPUT}" "#include \"resources/embedded.h\"

namespace resources {

static constexpr Text table[] = {
${table}};
const std::span<const Text> strings{table};

static constexpr char script[] = {
${script}};
const std::string_view zipFuncs{script, ${size}};

} // namespace resources
")
