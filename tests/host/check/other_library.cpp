// A library that no server has.
extern "C" int otherLibrary();
extern "C" int otherLibrary()
{
    return 1;
}
