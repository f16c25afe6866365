#include "support/surroundings.h"

#include <cstdio>
#include <stdexcept>

namespace folidex::test {

std::string lacking(const std::string& needs)
{
    std::FILE* output = popen((SURROUNDINGS " " + needs).c_str(), "r");
    std::string reasons;
    for (int byte = std::getc(output); byte != EOF; byte = std::getc(output)) {
        reasons.push_back(static_cast<char>(byte));
    }
    if (pclose(output) != 0 || !reasons.ends_with('\n')) {
        throw std::runtime_error("can't run " SURROUNDINGS);
    }
    reasons.pop_back();
    return reasons;
}

} // namespace folidex::test
