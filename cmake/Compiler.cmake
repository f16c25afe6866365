# Language level, warnings, sanitizers and hardening for every target of this project.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_OBJCXX_STANDARD 20)
set(CMAKE_OBJCXX_STANDARD_REQUIRED ON)
set(CMAKE_OBJCXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}")

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release)
endif()
# As distributions build: what waits for the system gains nothing by -O3, which compiles longer.
string(REPLACE "-O3" "-O2" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
                    -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wundef)
if(FOLIDEX_WERROR)
    add_compile_options(-Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 11 and 14 warn of copies within the standard library's strings and vectors that can't happen.
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-stringop-overflow>)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12 warns of "text" + std::string (GCC bug 105651).
    add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
    if(FOLIDEX_SANITIZE)
        # and of the instrumented std::regex (GCC bug 105562).
        add_compile_options(-Wno-maybe-uninitialized)
    endif()
endif()
add_compile_definitions(_FILE_OFFSET_BITS=64)

if(FOLIDEX_SANITIZE)
    # Optimised as far as the sanitizers recommend, with what a stack trace names.
    add_compile_options(-fsanitize=${FOLIDEX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1 -g1)
    add_link_options(-fsanitize=${FOLIDEX_SANITIZE})
elseif(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    add_compile_definitions(_FORTIFY_SOURCE=2)
endif()
add_compile_options(-fstack-protector-strong)
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
        add_compile_options(-fcf-protection)
    elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
        add_compile_options(-mbranch-protection=standard)
    endif()
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_C_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
    set(CMAKE_OBJCXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()
