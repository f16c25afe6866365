// What the file functions decide by themselves.
//
// Thread rule: any thread.
#pragma once

#include "frame/fmx_sdk.h"

// Whether an overwrite argument asks for overwriting: only "Y" or "y" does, alone. "Yes", "1" and "true" don't.
bool ShouldOverwrite(const fmx::Text& argument);
