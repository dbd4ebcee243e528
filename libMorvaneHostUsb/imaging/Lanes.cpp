#include "libMorvaneHostUsb/imaging/Lanes.h"

#ifdef __arm__
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace Vantor {

namespace {

bool hasLanes()
{
#if defined(__arm__)
    return (getauxval(AT_HWCAP) & HWCAP_NEON) != 0;
#elif defined(__SSE2__) || defined(__ARM_NEON)
    return true;
#else
    return false;
#endif
}

bool s_areUsed = hasLanes();

} // namespace

bool Lanes::areUsed()
{
    return s_areUsed;
}

void Lanes::use(bool areUsed)
{
    s_areUsed = areUsed && hasLanes();
}

} // namespace Vantor
