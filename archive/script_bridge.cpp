#include "archive/script_bridge.h"

namespace archive {

namespace {

using Password = std::optional<std::u16string_view>;

Status run(const Routine& routine, PathView source, PathView destination, Password password, platform::Bundle bundle)
{
    // The pause is part of what solutions see: no call takes less than a second.
    const ScriptSetup setup{[bundle] { return platform::resourceFile(bundle, "ZipFuncs", "sh"); },
                            std::chrono::seconds(1)};
    return runRoutine(routine, {source, destination, password}, setup);
}

} // namespace

Status ZipAFile(PathView source, PathView destination, platform::Bundle bundle)
{
    return run(routines::zipAFile, source, destination, std::nullopt, bundle);
}

Status ZipAFolder(PathView source, PathView destination, platform::Bundle bundle)
{
    return run(routines::zipAFolder, source, destination, std::nullopt, bundle);
}

Status UnzipAFile(PathView source, PathView destination, platform::Bundle bundle)
{
    return run(routines::unzipAFile, source, destination, std::nullopt, bundle);
}

Status ZipAndEncrypt(PathView source, PathView destination, std::u16string_view password, platform::Bundle bundle)
{
    return run(routines::zipAndEncrypt, source, destination, password, bundle);
}

Status ZipAndEncryptFolder(PathView source, PathView destination, std::u16string_view password, platform::Bundle bundle)
{
    return run(routines::zipAndEncryptFolder, source, destination, password, bundle);
}

Status UnzipAndDecrypt(PathView source, PathView destination, std::u16string_view password, platform::Bundle bundle)
{
    return run(routines::unzipAndDecrypt, source, destination, password, bundle);
}

Status EncryptTheFile(PathView source, PathView destination, std::u16string_view password, platform::Bundle bundle)
{
    return run(routines::encryptTheFile, source, destination, password, bundle);
}

Status DecryptTheFile(PathView source, PathView destination, std::u16string_view password, platform::Bundle bundle)
{
    return run(routines::decryptTheFile, source, destination, password, bundle);
}

} // namespace archive
