// What docs/abi.md shows.

#include "libMorvaneHostUsb/UsbManager.h"
#include "libMorvaneHostUsb/Version.h"

#if MORVANE_VERSION < MORVANE_VERSION_NUMBER(1, 2, 1)
#error "needs libMorvaneHostUsb 1.2.1"
#endif

bool isLibraryOlderThanItsHeaders()
{
    using Vantor::UsbManager;
    return MORVANE_VERSION_NUMBER(UsbManager::getVersionMajor(), UsbManager::getVersionMinor(),
                                  UsbManager::getVersionPatch()) < MORVANE_VERSION;
}
