// A stand-in: README.md.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

extern "C" CFDictionaryRef CGSessionCopyCurrentDictionary();
