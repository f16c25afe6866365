#include "platform/linux/directory_reader.h"

#include "platform/linux/descriptor.h"

#include <cerrno>
#include <cstring>
#include <string_view>

namespace platform::linux_os {

DirectoryReader::DirectoryReader(int folder, std::size_t bufferSize)
    : m_folder(folder), m_bufferSize(bufferSize), m_buffer(std::make_unique_for_overwrite<std::byte[]>(bufferSize))
{
}

bool DirectoryReader::fill()
{
    const auto bytes = retried([this] { return getdents64(m_folder, m_buffer.get(), m_bufferSize); });
    if (bytes < 0) {
        m_error = errno;
        return false;
    }
    m_position = 0;
    m_filled = static_cast<std::size_t>(bytes);
    return m_filled > 0;
}

const DirectoryEntry* DirectoryReader::next()
{
    for (;;) {
        if (m_position >= m_filled && !fill()) {
            m_filled = m_position = 0;
            return nullptr;
        }
        // The kernel aligns every record for direct access (getdents(2), d_reclen).
        const auto* record = reinterpret_cast<const dirent64*>(m_buffer.get() + m_position);
        m_position += record->d_reclen;
        const std::string_view name(record->d_name);
        if (name == "." || name == "..") {
            continue;
        }
        m_entry = {name.data(), name.size(), record->d_ino, record->d_off, record->d_type};
        return &m_entry;
    }
}

} // namespace platform::linux_os
