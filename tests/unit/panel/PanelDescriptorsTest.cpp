#include "simulator/panel/PanelDescriptors.h"
#include "tests/support/Bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

TEST(PanelDescriptors, bytes_asTheUsbSpecificationLaysThemOut)
{
    EXPECT_THAT(makePanelDescriptors(0xDEAD, 0xBEEF),
                testing::ElementsAre(
                    // bLength, bDescriptorType, bcdUSB 2.00, class/subclass/protocol, bMaxPacketSize0
                    0x12, 0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x40,
                    // idVendor, idProduct, bcdDevice 1.00, manufacturer, product, no serial, bNumConfigurations
                    0xAD, 0xDE, 0xEF, 0xBE, 0x00, 0x01, 0x01, 0x02, 0x00, 0x01,
                    // configuration: wTotalLength 32, 1 interface, value 1, no string, self-powered, 0 mA
                    0x09, 0x02, 0x20, 0x00, 0x01, 0x01, 0x00, 0xC0, 0x00,
                    // interface 0, alternate setting 0, 2 endpoints, vendor-specific
                    0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00,
                    // bulk OUT 2 and bulk IN 1 with 512 bytes
                    0x07, 0x05, 0x02, 0x02, 0x00, 0x02, 0x00, 0x07, 0x05, 0x81, 0x02, 0x00, 0x02, 0x00));
}

TEST(PanelDescriptors, ids_asGiven)
{
    const auto bytes = makePanelDescriptors(0x1234, 0x5678);
    EXPECT_THAT(Bytes(bytes.begin() + 8, bytes.begin() + 12), testing::ElementsAre(0x34, 0x12, 0x78, 0x56));
}

TEST(PanelDescriptors, strings_inUtf16)
{
    EXPECT_THAT(makePanelString(0), testing::ElementsAre(4, 3, 0x09, 0x04)); // US English
    EXPECT_THAT(makePanelString(1),
                testing::ElementsAre(18, 3, 'p', 0, 'a', 0, 'n', 0, 'e', 0, 'l', 0, 's', 0, 'i', 0, 'm', 0));
    EXPECT_EQ(makePanelString(2).size(), 2 + 2 * sizeof "Simulated panel" - 2);
    EXPECT_TRUE(makePanelString(3).empty());
}

} // namespace
} // namespace Vantor
