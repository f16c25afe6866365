// Percent-encoding (RFC 3986, section 2.1) and "file" URIs (RFC 8089).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform::linux_os {

// `bytes` with everything but ASCII letters, digits and "-._/" as %XX: safe in a file URI's path and in a value of a
// D-Bus address.
std::string percentEncoded(std::string_view bytes);

// The absolute POSIX path that a file URI of this machine names, without trailing slashes; nothing for another scheme
// or host, a query or fragment, a bad escape, and for a path that holds a NUL or isn't UTF-8.
std::optional<std::string> pathFromFileUri(std::string_view uri);

} // namespace platform::linux_os
