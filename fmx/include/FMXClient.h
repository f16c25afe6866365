// Client applications' own part of the interface: this kit offers nothing of it beyond the scalar types.
#pragma once

#include "FMXTypes.h"
