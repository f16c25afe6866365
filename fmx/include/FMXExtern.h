// The call record and the messages by which the application talks to a plug-in.
#pragma once

#include "FMXTypes.h"

#include <cstddef>

#if defined(__APPLE__)
struct __CFBundle;
#endif

struct FMX_ExternCallStruct;
using FMX_ExternCallPtr = FMX_ExternCallStruct*;

extern "C" {
using FMX_ExternCallProc = void (*)(FMX_ExternCallPtr);
using FMX_ExternCallback = void (*)(); // the record's callbacks: null, this kit offers none
}

// Messages (`whichCall`). Where nothing else is said, no parameter means anything.
enum {
    kFMXT_Init = 0, // parm1: kind of application, parm2: address of its version text; result: how it went
    kFMXT_Idle = 1,
    kFMXT_Shutdown = 4,
    kFMXT_DoAppPreferences = 5,
    kFMXT_GetString = 7, // parm1: which string, parm3: capacity in UTF-16 units; result: address of the output buffer
    kFMXT_SessionShutdown = 8,
    kFMXT_FileShutdown = 9
};

// Strings that kFMXT_GetString asks for.
enum {
    kFMXT_NameStr = 128,
    kFMXT_AppConfigStr = 129,
    kFMXT_OptionsStr = 131,
    kFMXT_HelpURLStr = 132 // when it ends in "=", the application appends a function's ID
};

// Packed: FileMaker lays it out without padding.
#pragma pack(push, 1)
struct FMX_ExternCallStruct {
    short extnVersion;      // the application's interface version: 50 is 7.0, 55 is 14, 57 is 16, 62 is 19
    fmx::unusedid unusedID; // -1
    FMX_ExternCallProc entryPoint;
    unsigned char cfmCalls; // 0
    unsigned char whichCall;
    unsigned char unsafeCalls;
    unsigned char parm1;
    FMX_PtrType parm2;
    FMX_PtrType parm3;
#if defined(__APPLE__)
    __CFBundle* instanceID; // the plug-in's own bundle, not retained
#else
    void* instanceID; // undefined: never read it
#endif
    FMX_PtrType result;
    FMX_PtrType unused;
    FMX_ExternCallback cStartScript;
    FMX_ExternCallback cCurrentEnv;
};
#pragma pack(pop)

#if defined(__LP64__)
static_assert(sizeof(FMX_ExternCallStruct) == 74);
static_assert(offsetof(FMX_ExternCallStruct, extnVersion) == 0);
static_assert(offsetof(FMX_ExternCallStruct, unusedID) == 2);
static_assert(offsetof(FMX_ExternCallStruct, entryPoint) == 6);
static_assert(offsetof(FMX_ExternCallStruct, cfmCalls) == 14);
static_assert(offsetof(FMX_ExternCallStruct, whichCall) == 15);
static_assert(offsetof(FMX_ExternCallStruct, unsafeCalls) == 16);
static_assert(offsetof(FMX_ExternCallStruct, parm1) == 17);
static_assert(offsetof(FMX_ExternCallStruct, parm2) == 18);
static_assert(offsetof(FMX_ExternCallStruct, parm3) == 26);
static_assert(offsetof(FMX_ExternCallStruct, instanceID) == 34);
static_assert(offsetof(FMX_ExternCallStruct, result) == 42);
static_assert(offsetof(FMX_ExternCallStruct, unused) == 50);
static_assert(offsetof(FMX_ExternCallStruct, cStartScript) == 58);
static_assert(offsetof(FMX_ExternCallStruct, cCurrentEnv) == 66);
#endif

// The plug-in defines both: the record of the current call, and its one export.
extern FMX_ExternCallPtr gFMX_ExternCallPtr;
extern "C" FMX_API void FMExternCallProc(FMX_ExternCallPtr record);
