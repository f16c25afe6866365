// Keeps a signal from the calling thread that a system call of this very thread raises, where the call's error says all
// that there is to say. A write beyond the limit on file sizes (setrlimit(2), RLIMIT_FSIZE) returns EFBIG, but raises
// SIGXFSZ first, which would end the host.
//
// Thread rule: a value belongs to the thread that made it.
#pragma once

namespace platform {

class SignalBlock {
public:
    explicit SignalBlock(int signal);

    // What arrived meanwhile is dropped, and the thread gets the signal again if it did before. Keeps errno.
    ~SignalBlock();

    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;

private:
    int signal_;
    bool wasBlocked_ = false;
    bool wasPending_ = false;
};

} // namespace platform
