#include "libMorvaneHostUsb/Version.h"

#include "libMorvaneHostUsb/UsbManager.h"

#include <string>

#include <gtest/gtest.h>

#if MORVANE_VERSION < MORVANE_VERSION_NUMBER(1, 2, 1) || MORVANE_VERSION >= MORVANE_VERSION_NUMBER(2, 0, 0)
#error "the preprocessor can't compare versions"
#endif

namespace Vantor {

TEST(Version, parts_areThoseOfTheNumberAndTheText)
{
    EXPECT_EQ(MORVANE_VERSION, 10201);
    EXPECT_STREQ(MORVANE_VERSION_STRING, "1.2.1");
}

TEST(Version, laterVersion_hasTheGreaterNumber)
{
    EXPECT_LT(MORVANE_VERSION_NUMBER(1, 2, 9), MORVANE_VERSION_NUMBER(1, 2, 10));
    EXPECT_LT(MORVANE_VERSION_NUMBER(1, 9, 99), MORVANE_VERSION_NUMBER(1, 10, 0));
    EXPECT_LT(MORVANE_VERSION_NUMBER(1, 99, 99), MORVANE_VERSION_NUMBER(2, 0, 0));
}

// As an application asks whether it runs with an earlier library than it was compiled for.
TEST(Version, libraryOfTheSameTree_hasTheVersionOfItsHeaders)
{
    EXPECT_EQ(MORVANE_VERSION_NUMBER(UsbManager::getVersionMajor(), UsbManager::getVersionMinor(),
                                     UsbManager::getVersionPatch()),
              MORVANE_VERSION);
    EXPECT_EQ(UsbManager::getVersion(), std::string(MORVANE_VERSION_STRING) + "+");
}

} // namespace Vantor
