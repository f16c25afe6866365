// The names of CommonCrypto that this project uses, and no others, declared after its manual pages (CC_crypto(3cc),
// CCCryptor(3cc), CCHmac(3cc)) and Apple's developer documentation: what link_test.py compiles with. The library itself
// is part of libSystem.
#pragma once
// clang-format off

#include <stddef.h>
#include <stdint.h>

typedef int32_t CCStatus;
typedef int32_t CCCryptorStatus;
typedef CCCryptorStatus CCRNGStatus;
enum { kCCSuccess = 0, kCCMemoryFailure = -4302 };
typedef uint32_t CCOperation;
enum { kCCEncrypt = 0 };
typedef uint32_t CCMode;
enum { kCCModeECB = 1, kCCModeCTR = 4 };
typedef uint32_t CCAlgorithm;
enum { kCCAlgorithmAES = 0 };
typedef uint32_t CCPadding;
enum { ccNoPadding = 0 };
typedef uint32_t CCModeOptions;
enum { kCCModeOptionCTR_BE = 2 };
typedef struct _CCCryptor* CCCryptorRef;
typedef uint32_t CCHmacAlgorithm;
enum { kCCHmacAlgSHA1 = 0, kCCHmacAlgSHA256 = 2 };
typedef struct { uint32_t ctx[96]; } CCHmacContext;
typedef uint32_t CCPBKDFAlgorithm;
enum { kCCPBKDF2 = 2 };
typedef uint32_t CCPseudoRandomAlgorithm;
enum { kCCPRFHmacAlgSHA1 = 1, kCCPRFHmacAlgSHA256 = 3 };

extern "C" {
CCCryptorStatus CCCryptorCreateWithMode(CCOperation, CCMode, CCAlgorithm, CCPadding, const void* vector, const void* key, size_t keySize, const void* tweak, size_t tweakSize, int rounds, CCModeOptions, CCCryptorRef*);
CCCryptorStatus CCCryptorRelease(CCCryptorRef);
CCCryptorStatus CCCryptorUpdate(CCCryptorRef, const void* in, size_t inSize, void* out, size_t outAvailable, size_t* outMoved);
void CCHmacInit(CCHmacContext*, CCHmacAlgorithm, const void* key, size_t keySize);
void CCHmacUpdate(CCHmacContext*, const void* data, size_t size);
void CCHmacFinal(CCHmacContext*, void* digest);
int CCKeyDerivationPBKDF(CCPBKDFAlgorithm, const char* password, size_t passwordSize, const uint8_t* salt, size_t saltSize, CCPseudoRandomAlgorithm, unsigned rounds, uint8_t* key, size_t keySize);
CCRNGStatus CCRandomGenerateBytes(void* bytes, size_t count);
}
