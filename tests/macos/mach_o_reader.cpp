// Shows what fmxhost's reader of Mach-O files, which is part of it on a Mac only, makes of a file.
#include "host/check/binary.h"

#include <iostream>

int main(int, char** arguments)
{
    try {
        const fmxhost::check::Binary binary = fmxhost::check::readBinary(arguments[1]);
        for (const auto& [title, names] : {std::pair{"exports", binary.exports},
                                           {"needs", binary.neededLibraries},
                                           {"searches", binary.searchPaths}}) {
            for (const std::string& name : names) {
                std::cout << title << ' ' << name << '\n';
            }
        }
    } catch (const fmxhost::check::BinaryError& error) {
        std::cout << "error " << error.what() << '\n';
    }
}
