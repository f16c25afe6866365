// The FileMaker plug-in SDK, wherever it is: a framework on macOS, a folder of headers elsewhere. The kit in fmx/
// offers the same names.
#pragma once

#if __has_include(<FMWrapper/FMXExtern.h>)
#include <FMWrapper/FMXCalcEngine.h>
#include <FMWrapper/FMXData.h>
#include <FMWrapper/FMXDateTime.h>
#include <FMWrapper/FMXExtern.h>
#include <FMWrapper/FMXFixPt.h>
#include <FMWrapper/FMXText.h>
#include <FMWrapper/FMXTypes.h>
#else
#include <FMWrapper.h>
#endif
