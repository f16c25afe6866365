// The whole plug-in interface.
#pragma once

#include "FMXBinaryData.h"
#include "FMXCalcEngine.h"
#include "FMXClient.h"
#include "FMXData.h"
#include "FMXDateTime.h"
#include "FMXExtern.h"
#include "FMXFixPt.h"
#include "FMXText.h"
#include "FMXTextStyle.h"
#include "FMXTypes.h"
