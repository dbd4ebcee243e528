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

// Each byte that makes them unfit for a panel; the offsets are those of the test above.
TEST(PanelDescriptors, ofAPanel_areToldFromOthers)
{
    const Bytes good = makePanelDescriptors(0x1234, 0xBEEF);
    EXPECT_TRUE(arePanelDescriptors(good));
    struct Change {
        std::size_t offset;
        std::uint8_t value;
    };
    for (const Change& change :
         {Change{0, 17},  Change{0, 19}, Change{1, 2},    Change{10, 0xEE}, Change{17, 2},    Change{18, 8},
          Change{18, 10}, Change{19, 4}, Change{20, 31},  Change{20, 33},   Change{23, 2},    Change{27, 8},
          Change{28, 5},  Change{29, 1}, Change{36, 6},   Change{37, 6},    Change{38, 0x03}, Change{39, 3},
          Change{43, 8},  Change{43, 0}, Change{45, 0x82}}) {
        Bytes changed = good;
        changed[change.offset] = change.value;
        EXPECT_FALSE(arePanelDescriptors(changed)) << change.offset << ": " << int{change.value};
    }
    for (std::size_t size = 0; size < good.size(); ++size)
        EXPECT_FALSE(arePanelDescriptors({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)})) << size;
    Bytes longer = good;
    longer.push_back(0);
    EXPECT_FALSE(arePanelDescriptors(longer));
}

TEST(PanelDescriptors, stringDescriptor_isReadAsFarAsItIsAscii)
{
    EXPECT_EQ(readPanelString(makePanelString(1)), "panelsim");
    EXPECT_EQ(readPanelString({10, 3, 'a', 0, 0xE4, 0, 'b', 1, 'c'}), "a");
    EXPECT_EQ(readPanelString({4, 3, '\n', 0}), "");
    EXPECT_EQ(readPanelString({}), "");
}

} // namespace
} // namespace Vantor
