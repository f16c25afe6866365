// How TERM, HUP and INT end a call: nothing is torn down in a signal's handler. A signal is noted, the code that works
// looks for it, and what it throws undoes everything on its way out.
#pragma once

namespace archiver {

// What throwIfInterrupted() throws; main() turns it into the exit status, 128 and the signal's number.
struct Interrupted {
    int signal = 0;
};

// Has the signals noted from now on, but for those that the process ignores already (nohup(1)).
void noteInterruptions();

// To be called in every loop that may take longer than a moment: per block, per entry. Not once something has begun to
// be put into place, for that is seen through. On any thread; several may throw.
void throwIfInterrupted();

} // namespace archiver
