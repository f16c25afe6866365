// In the place of GCC's header of this name, whose inline functions look into objects as ARC forbids: what GNUstep's
// headers need of it.
#pragma once
#pragma GCC system_header

#include <objc/objc.h>

typedef struct objc_method* Method;
typedef struct objc_ivar* Ivar;
struct objc_method_description {
    SEL name;
    char* types;
};
