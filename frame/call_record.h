// What the plug-in keeps of the call records that FileMaker hands to its entry point.
//
// Thread rule: the entry point notes each record before anything else; any thread may read it meanwhile.
#pragma once

#include "frame/fmx_sdk.h"
#include "platform/resources.h"

namespace frame {

// Makes `record` the current one (gFMX_ExternCallPtr) and notes what outlives it.
void noteCallRecord(FMX_ExternCallPtr record);

// The host's API version, of the most recent record: 50 (FileMaker 7) to 255.
int hostApiVersion();

// The plug-in's own bundle, of the most recent record. The reference stays valid while the plug-in is loaded, which
// the record itself, on the host's stack, doesn't.
platform::Bundle pluginBundle();

} // namespace frame
