#include "archiver/encrypted_file.h"

#include "archiver/failure.h"

namespace archiver {

void encryptFile(const Job&)
{
    fail(Exit::unsupported, "not built in");
}

void decryptFile(const Job&)
{
    fail(Exit::unsupported, "not built in");
}

} // namespace archiver
