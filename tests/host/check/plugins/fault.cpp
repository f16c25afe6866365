// The fault of one plug-in; plugin.cpp asks for it by name. Faults of the file itself are made here.
extern "C" const char* const faultOfThisPlugin;
const char* const faultOfThisPlugin = FAULT;

#ifdef UNDEFINED_SYMBOL
extern "C" void noLibraryHasThis();
void (*needsWhatIsNowhere)() = noLibraryHasThis;
#endif

#ifdef NEW_SYMBOL
#include <cstdlib>
unsigned (*newSymbol)() = arc4random; // of glibc 2.36
#endif

#ifdef OTHER_LIBRARY
extern "C" int otherLibrary();
int (*needsOtherLibrary)() = otherLibrary;
#endif
