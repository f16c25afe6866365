// The function reference: what a plug-in registered, joined with the texts of docs/reference/.
//
// docs/reference/index.md gives title, introduction and chapters. Each function's text says in which chapter it stands;
// there the functions follow the registry's order. Names, prototypes, counts and short descriptions come from the
// registry, so that none of them can drift.
#pragma once

#include "host/reference/function_text.h"

#include <fmxkit/registry.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace fmxhost::reference {

struct Entry {
    FunctionText text;
    short id = 0; // of the function
    std::string prototype;
    std::string words;   // by which the description lets it be found
    std::string summary; // the description's first sentence
};

struct Chapter {
    std::string title;
    std::string text; // Markdown
    std::vector<Entry> functions;
};

struct Message {
    int code = 0;
    std::string text;
};

struct Reference {
    std::string title;
    std::string introduction; // Markdown
    std::vector<Chapter> chapters;
    std::vector<Message> messages; // of every error code that has one
};

// Reads the folder's texts for the functions.
// Errors: TextError for a missing or malformed text, for a text whose function isn't registered or whose chapter isn't
// in the index, and for parameters that aren't those of the prototype.
Reference readReference(const std::filesystem::path& folder, const std::vector<fmxkit::ExternalFunction>& functions);

std::string markdownPage(const Reference& reference);

// One page made from a template, in which "{{title}}", "{{navigation}}" and "{{content}}" stand for the parts.
std::string htmlPage(const Reference& reference, std::string_view pageTemplate);

// The template, page.html in the folder of the texts.
// Errors: TextError.
std::string readPageTemplate(const std::filesystem::path& folder);

// A function's text on platforms, or the words for no differences.
std::string platformsOf(const FunctionText& text);

inline constexpr std::string_view messagesTitle = "All error codes";
inline constexpr std::string_view messagesIntroduction =
    "Every code that has a message, whether or not a function gives it today, with the message as `KORB_GetLastError` "
    "answers it when nothing is added.";

// What KORB_GetLastError answers after an error, as its own code words it; "…" stands for a text of the system.
std::string lastErrorText(const ErrorCase& error);
std::vector<Message> allMessages();

} // namespace fmxhost::reference
