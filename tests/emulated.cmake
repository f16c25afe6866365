# CTestCustom.cmake of cross builds: the tests that can't be asked of programs that qemu runs (qemu-user 7.2).
set(CTEST_CUSTOM_TESTS_IGNORE
    # scripts/arm64 knows one user, and access lists name others.
    LinuxCopy.KeepsOwnersAttributesListsAndSetIdBits
    LinuxCopy.InheritsNoAccessList
    # It offers no system call filters (seccomp(2)).
    LinuxCopyAndMove.DoWithoutWhatAFileSystemLacks
    # Its own two real-time signals are ignored in every program that it starts.
    Opener.StartsClean
    # A vfork(2) is a fork(2) there, so posix_spawn(3) and popen(3) don't learn that a command couldn't be run.
    ArchiveRoutine.FailsWithoutAScriptOrWithAFieldThatCantBeWritten
    ArchiveRoutineTrace.TellsEachStepOfZipAFile
    # Valgrind is this machine's.
    memcheck)
