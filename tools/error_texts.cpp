// What KORB_GetLastError returns after an error, as the plug-in's own code words it, for the reference of the
// functions. Each line of standard input is a code, or a code, a blank and the extended text, in which "\n" stands for
// a line end; each line of standard output is the answer. Texts are UTF-8.
#include "frame/error_model.h"
#include "frame/functions.h"

#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace {

std::string withLineEnds(std::string text)
{
    for (std::size_t mark = 0; (mark = text.find("\\n", mark)) != std::string::npos; ++mark) {
        text.replace(mark, 2, "\n");
    }
    return text;
}

std::string lastErrorText()
{
    const fmx::ExprEnvUniquePtr environment;
    const fmx::DataVectUniquePtr arguments;
    const fmx::DataUniquePtr result;
    KORB_GetLastError(0, *environment, *arguments, *result);
    const fmx::Text& text = result->GetAsText();
    std::vector<char> bytes(std::size_t{4} * text.GetSize());
    const fmx::uint32 size = text.GetBytesEx(bytes.data(), static_cast<fmx::uint32>(bytes.size()), 0,
                                             fmx::Text::kSize_End, fmx::Text::kEncoding_UTF8);
    return {bytes.data(), size};
}

} // namespace

int main()
{
    for (std::string line; std::getline(std::cin, line);) {
        std::size_t codeEnd = 0;
        const int code = std::stoi(line, &codeEnd);
        const bool isExtended = codeEnd < line.size();
        frame::lastErrors().setError(code, 0,
                                     isExtended ? std::optional(withLineEnds(line.substr(codeEnd + 1))) : std::nullopt);
        std::cout << lastErrorText() << '\n';
    }
}
