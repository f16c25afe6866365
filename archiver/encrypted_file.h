// One file, encrypted under a password: the format of docs/encrypted-files.md.
#pragma once

#include "archiver/protocol.h"

#include <array>
#include <cstddef>
#include <functional>
#include <span>
#include <string_view>

namespace archiver {

// What all keys of a file are made of.
using MasterKey = std::array<std::byte, 32>;
using Derivation = std::function<MasterKey(std::string_view password, std::span<const std::byte> salt)>;

// The format's own: takes some tenths of a second.
MasterKey deriveMasterKey(std::string_view password, std::span<const std::byte> salt);

// Writes an encrypted copy of the source under the destination's name.
void encryptFile(const Job& job, const Derivation& derive = deriveMasterKey);

// Writes a decrypted one. Failures: damaged for a file of another kind and for one that was changed, wrongPassword for
// nothing but that.
void decryptFile(const Job& job, const Derivation& derive = deriveMasterKey);

} // namespace archiver
