// The reader of strings tables beside one that first cuts a table into tokens, its result written out and read again,
// and the texts that FileMaker gets of the plug-in's own table.
#include "fuzz/target.h"

#include "frame/strings.h"
#include "platform/strings_table.h"
#include "resources/embedded.h"

#include <array>
#include <limits>

namespace {

using platform::StringsTable;

// What stands between quotes, escapes undone; or a sign of its own.
struct Token {
    std::optional<std::u16string> text;
    char sign = '\0';
};

class Tokens {
public:
    explicit Tokens(std::string_view source) : m_source(source) {}

    // Nothing when the source has anything else than texts, signs, blanks and comments.
    std::optional<std::vector<Token>> all()
    {
        std::vector<Token> tokens;
        while (m_at < m_source.size()) {
            const char sign = m_source[m_at];
            if (isBlank(sign)) {
                ++m_at;
            } else if (sign == '/') {
                if (!skipComment()) {
                    return std::nullopt;
                }
            } else if (sign == '=' || sign == ';') {
                ++m_at;
                tokens.push_back({std::nullopt, sign});
            } else if (sign == '"') {
                tokens.push_back({text()});
                if (!tokens.back().text) {
                    return std::nullopt;
                }
            } else {
                return std::nullopt;
            }
        }
        return tokens;
    }

private:
    static bool isBlank(char sign) { return sign == ' ' || sign == '\t' || sign == '\r' || sign == '\n'; }
    bool at(std::string_view words) const { return m_source.substr(m_at, words.size()) == words; }

    bool skipComment()
    {
        const bool toLineEnd = at("//");
        if (!toLineEnd && !at("/*")) {
            return false;
        }
        for (m_at += 2; m_at < m_source.size(); ++m_at) {
            if (toLineEnd ? at("\n") : at("*/")) {
                m_at += toLineEnd ? 1 : 2;
                return true;
            }
        }
        return toLineEnd;
    }

    std::optional<std::u16string> text()
    {
        std::u16string value;
        std::string plain; // not converted yet: a sequence of bytes doesn't go on behind an escape
        for (++m_at; m_at < m_source.size();) {
            const char sign = m_source[m_at++];
            if (sign != '"' && sign != '\\') {
                plain += sign;
                continue;
            }
            value += fuzz::referenceUtf16(plain);
            plain.clear();
            if (sign == '"') {
                return value;
            }
            if (m_at == m_source.size() || !escape(value, plain)) {
                return std::nullopt;
            }
        }
        return std::nullopt;
    }

    bool escape(std::u16string& value, std::string& plain)
    {
        const char sign = m_source[m_at++];
        switch (sign) {
        case 'n':
            value += u'\n';
            return true;
        case 'r':
            value += u'\r';
            return true;
        case 't':
            value += u'\t';
            return true;
        case 'u':
        case 'U': {
            const std::string digits(m_source.substr(m_at, 4));
            if (digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos || digits.size() < 4) {
                return false;
            }
            value += static_cast<char16_t>(std::stoul(digits, nullptr, 16));
            m_at += 4;
            return true;
        }
        default:
            plain += sign;
            return true;
        }
    }

    std::string_view m_source;
    std::size_t m_at = 0;
};

std::optional<StringsTable> referenceTable(std::string_view source)
{
    if (source.starts_with("\xEF\xBB\xBF")) {
        source.remove_prefix(3);
    }
    const auto tokens = Tokens(source).all();
    if (!tokens || tokens->size() % 4 != 0) {
        return std::nullopt;
    }
    StringsTable table;
    for (std::size_t i = 0; i < tokens->size(); i += 4) {
        const Token* pair = tokens->data() + i;
        const auto key = pair[0].text ? fuzz::referenceUtf8(*pair[0].text) : std::nullopt;
        if (!key || pair[1].sign != '=' || !pair[2].text || pair[3].sign != ';') {
            return std::nullopt;
        }
        table[*key] = *pair[2].text;
    }
    return table;
}

std::string quoted(std::u16string_view text)
{
    std::string written = "\"";
    for (const char16_t unit : text) {
        std::array<char, 8> escape{};
        std::snprintf(escape.data(), escape.size(), "\\U%04x", static_cast<unsigned>(unit));
        const bool plain = unit >= u' ' && unit < 0x7F && unit != u'"' && unit != u'\\';
        written += plain ? std::string(1, static_cast<char>(unit)) : escape.data();
    }
    return written + '"';
}

std::string written(const StringsTable& table)
{
    std::string text;
    for (const auto& [key, value] : table) {
        text += quoted(fuzz::referenceUtf16(key)) + " = " + quoted(value) + ";\n";
    }
    return text;
}

void loaded(short number, std::size_t capacity, const std::u16string& text)
{
    constexpr fmx::unichar16 untouched = 0xABCD;
    std::vector<fmx::unichar16> buffer(capacity + 1, untouched);
    const std::size_t length = frame::loadString(number, buffer.data(), capacity);
    const bool fits = capacity >= 2 && !text.empty() && text.size() < capacity - 1;
    FUZZ_CHECK(length == (fits ? text.size() : 0));
    // An empty text that fits is written, too, but for its terminating zero there is nothing to see.
    const bool writes = fits || (text.empty() && buffer[0] == 0);
    FUZZ_CHECK(std::u16string(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(length)) ==
               text.substr(0, length));
    FUZZ_CHECK(!writes || buffer[length] == 0);
    for (std::size_t i = writes ? length + 1 : 0; i < buffer.size(); ++i) {
        FUZZ_CHECK(buffer[i] == untouched);
    }
}

// Every number there is, and every capacity around the lengths of the texts.
bool ownTableHolds()
{
    const auto table = referenceTable(resources::stringsTable);
    FUZZ_CHECK(table && !table->empty());
    std::size_t found = 0;
    for (int number = std::numeric_limits<short>::min(); number <= std::numeric_limits<short>::max(); ++number) {
        const auto entry = table->find("KORB " + std::to_string(number));
        const bool there = entry != table->end();
        found += there ? 1 : 0;
        loaded(static_cast<short>(number), there ? 1024 : 8, there ? entry->second : std::u16string());
        for (std::size_t capacity = 0; there && capacity < entry->second.size() + 4; ++capacity) {
            loaded(static_cast<short>(number), capacity, entry->second);
        }
    }
    FUZZ_CHECK(found == table->size());
    return true;
}

} // namespace

void fuzz::test(std::string_view input)
{
    static const bool held = ownTableHolds();
    FUZZ_CHECK(held);
    const std::optional<StringsTable> table = platform::parseStringsTable(input);
    FUZZ_CHECK(table == referenceTable(input));
    if (table) {
        FUZZ_CHECK(platform::parseStringsTable(written(*table)) == table);
    }
}
