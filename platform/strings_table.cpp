#include "platform/strings_table.h"

#include "platform/unicode.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace platform {

namespace {

class Reader {
public:
    explicit Reader(std::string_view text) : m_text(text) {}

    // False when a comment has no end.
    bool skipBlanksAndComments()
    {
        for (;;) {
            const std::size_t start = m_text.find_first_not_of(" \t\r\n");
            m_text.remove_prefix(start == std::string_view::npos ? m_text.size() : start);
            std::size_t end = 0;
            if (m_text.starts_with("//")) {
                end = m_text.find('\n');
                end = end == std::string_view::npos ? m_text.size() : end + 1;
            } else if (m_text.starts_with("/*")) {
                end = m_text.find("*/", 2);
                if (end == std::string_view::npos) {
                    return false;
                }
                end += 2;
            } else {
                return true;
            }
            m_text.remove_prefix(end);
        }
    }

    bool atEnd() const { return m_text.empty(); }

    bool skip(char sign)
    {
        if (!skipBlanksAndComments() || !m_text.starts_with(sign)) {
            return false;
        }
        m_text.remove_prefix(1);
        return true;
    }

    std::optional<std::u16string> quoted()
    {
        if (!skip('"')) {
            return std::nullopt;
        }
        std::u16string value;
        while (!m_text.empty()) {
            const std::size_t plain = std::min(m_text.find_first_of("\"\\"), m_text.size());
            appendUtf16FromUtf8(value, m_text.substr(0, plain));
            m_text.remove_prefix(plain);
            if (skipSign('"')) {
                return value;
            }
            if (skipSign('\\') && !readEscape(value)) {
                return std::nullopt;
            }
        }
        return std::nullopt;
    }

private:
    bool skipSign(char sign)
    {
        const bool there = m_text.starts_with(sign);
        m_text.remove_prefix(there ? 1 : 0);
        return there;
    }

    bool readEscape(std::u16string& value)
    {
        if (m_text.empty()) {
            return false;
        }
        const char sign = m_text.front();
        if (sign == 'U' || sign == 'u') {
            return readUnit(value);
        }
        static constexpr std::string_view letters = "nrt";
        static constexpr std::u16string_view meanings = u"\n\r\t";
        if (const std::size_t letter = letters.find(sign); letter != std::string_view::npos) {
            value.push_back(meanings[letter]);
            m_text.remove_prefix(1);
        } else if (sign == '"' || sign == '\\') {
            value.push_back(static_cast<char16_t>(sign));
            m_text.remove_prefix(1);
        }
        return true;
    }

    bool readUnit(std::u16string& value)
    {
        constexpr std::size_t digits = 4;
        if (m_text.size() < digits + 1) {
            return false;
        }
        unsigned unit = 0;
        for (const char digit : m_text.substr(1, digits)) {
            static constexpr std::string_view hexadecimal = "0123456789abcdefABCDEF";
            const std::size_t worth = hexadecimal.find(digit);
            if (worth == std::string_view::npos) {
                return false;
            }
            unit = unit * 16 + static_cast<unsigned>(worth < 16 ? worth : worth - 6);
        }
        value.push_back(static_cast<char16_t>(unit));
        m_text.remove_prefix(digits + 1);
        return true;
    }

    std::string_view m_text;
};

} // namespace

std::optional<StringsTable> parseStringsTable(std::string_view text)
{
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(byteOrderMark)) {
        text.remove_prefix(byteOrderMark.size());
    }
    StringsTable table;
    Reader reader(text);
    for (;;) {
        if (!reader.skipBlanksAndComments()) {
            return std::nullopt;
        }
        if (reader.atEnd()) {
            return table;
        }
        const auto key = reader.quoted();
        const bool equals = key && reader.skip('=');
        auto value = equals ? reader.quoted() : std::nullopt;
        const auto name = value ? utf8FromUtf16(*key) : std::nullopt;
        if (!name || !reader.skip(';')) {
            return std::nullopt;
        }
        table.insert_or_assign(*name, std::move(*value));
    }
}

} // namespace platform
