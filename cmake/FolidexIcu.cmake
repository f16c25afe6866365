# The target ICU::uc: the package ICU, or what macOS has of it, the library libicucore and in its SDK the headers
# unicode/uchar.h, ustring.h, utf8.h, utf16.h and what these include. Nothing else of ICU may be used.
if(NOT APPLE)
    find_package(ICU 60 REQUIRED COMPONENTS uc)
    return()
endif()
add_library(ICU::uc INTERFACE IMPORTED)
target_link_libraries(ICU::uc INTERFACE icucore)
# Its symbols carry no version; its units are the language's, which C++11 made the default (unicode/umachine.h).
target_compile_definitions(ICU::uc INTERFACE U_DISABLE_RENAMING=1 UCHAR_TYPE=char16_t)
