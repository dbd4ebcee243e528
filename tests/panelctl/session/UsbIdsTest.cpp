#include "panelctl/session/UsbIds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

using ::testing::ElementsAre;

TEST(UsbIds, withoutAProductionVendor_areDevelopmentPanelsAlone)
{
    EXPECT_THAT(UsbIds::list(0), ElementsAre("dead:beef"));
    EXPECT_EQ(UsbIds::join(UsbIds::list(0), " or "), "dead:beef");
    EXPECT_EQ(UsbIds::selectAll(UsbIds::list(0)), "dead:beef");
}

TEST(UsbIds, withAProductionVendor_areBoth)
{
    EXPECT_THAT(UsbIds::list(0xC), ElementsAre("dead:beef", "000c:beef"));
    EXPECT_EQ(UsbIds::join(UsbIds::list(0x1A2B), " or "), "dead:beef or 1a2b:beef");
    EXPECT_EQ(UsbIds::selectAll(UsbIds::list(0x1A2B)), ":beef");
}

TEST(UsbIds, developmentVendorAsProductionVendor_isNamedOnce)
{
    EXPECT_THAT(UsbIds::list(0xDEAD), ElementsAre("dead:beef"));
}

} // namespace Vantor
