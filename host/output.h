// Buffered writing to a file descriptor that lets no failed write pass.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <system_error>

namespace fmxhost {

// A write failed; code() is the errno.
class OutputError : public std::system_error {
public:
    using std::system_error::system_error;
};

// Thread rule: one thread at a time.
class Output {
public:
    // The descriptor stays open and belongs to the caller.
    explicit Output(int descriptor) : descriptor_(descriptor) {}
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // Errors: OutputError. What is still in the buffer when the object goes is lost: flush() is how to know.
    void write(std::string_view bytes);
    void flush();

    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
    std::string buffer_;
};

// Opens what stands in for closed standard descriptors, so that no file of the plug-in gets their numbers. Writing to a
// stand-in fails as it would have.
void reserveStandardDescriptors();

} // namespace fmxhost
