# Writes OUTPUT, a C++ source that defines each name=path of FILES as a std::string_view of resources/embedded.h.

set(source "#include \"resources/embedded.h\"\n\nnamespace resources {\n")
foreach(entry IN LISTS FILES)
    string(REGEX MATCH "^([^=]+)=(.+)$" matched "${entry}")
    set(name "${CMAKE_MATCH_1}")
    file(READ "${CMAKE_MATCH_2}" hex HEX)
    string(LENGTH "${hex}" digits)
    math(EXPR size "${digits} / 2")
    string(REGEX REPLACE "(................................)" "\\1\n" hex "${hex}")
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
    string(APPEND source "static const char ${name}Bytes[] = {\n${bytes}\n'\\0'};\n"
                         "const std::string_view ${name}{${name}Bytes, ${size}};\n")
endforeach()
string(APPEND source "} // namespace resources\n")
file(WRITE "${OUTPUT}" "${source}")
