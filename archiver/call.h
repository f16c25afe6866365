// One call of the program: a verb line, and how it ended.
#pragma once

#include <string>
#include <string_view>

namespace archiver {

struct Ending {
    int status = 0;
    std::string cause; // empty after a success
};

// Does what the line asks for. Nothing is thrown.
Ending perform(std::string_view line);

} // namespace archiver
