// Scratch folders on two file systems.
#pragma once

#include "support/scratch_folder.h"

#include <memory>

namespace folidex::test {

// `away` is null where there is only one file system. The trees are built in `home`, where it is quickest, in memory,
// unless no attribute can be kept there (tmpfs before Linux 6.6).
struct ScratchPair {
    std::unique_ptr<ScratchFolder> home = std::make_unique<ScratchFolder>();
    std::unique_ptr<ScratchFolder> away;

    ScratchPair();
};

} // namespace folidex::test
