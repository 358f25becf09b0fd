// The library's entry routine. It does no work of its own; global objects are
// constructed and destroyed by the runtime around it.
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD /*reason*/, LPVOID /*reserved*/) { return TRUE; }
