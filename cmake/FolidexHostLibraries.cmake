# The libraries behind fmxhost: CLI11::CLI11, nlohmann_json::nlohmann_json and libedit::libedit.
include(FetchContent)

# folidex_header_library(NAME VERSION REPOSITORY TAG): the installed package, else that tag's sources from the network.
macro(folidex_header_library name version repository tag)
    find_package(${name} ${version} QUIET)
    if(NOT ${name}_FOUND)
        string(TOUPPER ${name} content)
        message(STATUS "${name} isn't installed: fetching ${repository} ${tag}. Where that can't be reached, install it "
                       "or name a folder of its sources by -DFETCHCONTENT_SOURCE_DIR_${content}=…")
        FetchContent_Declare(${name} GIT_REPOSITORY ${repository} GIT_TAG ${tag} GIT_SHALLOW ON SYSTEM)
        FetchContent_MakeAvailable(${name})
    endif()
endmacro()

# Both ask for older versions of CMake than CMake 4 knows.
set(CMAKE_POLICY_VERSION_MINIMUM 3.25)
set(CLI11_BUILD_DOCS OFF CACHE INTERNAL "")
set(CLI11_BUILD_EXAMPLES OFF CACHE INTERNAL "")
set(CLI11_BUILD_TESTS OFF CACHE INTERNAL "")
set(CLI11_INSTALL OFF CACHE INTERNAL "")
folidex_header_library(CLI11 2 https://github.com/CLIUtils/CLI11.git v2.3.2)
folidex_header_library(nlohmann_json 3.9 https://github.com/nlohmann/json.git v3.11.2)

# Part of macOS, and a package elsewhere.
find_path(LIBEDIT_INCLUDE_DIR editline/readline.h REQUIRED)
find_library(LIBEDIT_LIBRARY edit REQUIRED)
add_library(libedit::libedit INTERFACE IMPORTED)
target_include_directories(libedit::libedit INTERFACE "${LIBEDIT_INCLUDE_DIR}")
target_link_libraries(libedit::libedit INTERFACE "${LIBEDIT_LIBRARY}")
