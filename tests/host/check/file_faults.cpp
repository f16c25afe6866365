// No plug-in: it breaks each rule for a plug-in's file.
extern "C" int otherLibrary();
extern "C" int exportedBesides();
extern "C" int exportedBesides()
{
    return otherLibrary();
}
