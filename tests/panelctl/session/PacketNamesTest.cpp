#include "panelctl/session/PacketNames.h"

#include <gtest/gtest.h>

namespace Vantor {

TEST(PacketNames, typesThatTheLibraryKnows_haveOne)
{
    EXPECT_EQ(PacketNames::find(static_cast<PacketType>(0)), "DeviceInformation");
    EXPECT_EQ(PacketNames::find(static_cast<PacketType>(38)), "LcdSlice");
    EXPECT_EQ(PacketNames::find(static_cast<PacketType>(40)), "FirmwareUpgradeCommand");
    EXPECT_EQ(PacketNames::find(static_cast<PacketType>(46)), "EncodedLcdSlice");
    EXPECT_FALSE(PacketNames::find(static_cast<PacketType>(5)));
    EXPECT_EQ(PacketNames::listAll(), "DeviceInformation, LcdSlice, FirmwareUpgradeCommand, EncodedLcdSlice");
}

TEST(PacketNames, nameOrNumber_isParsed)
{
    EXPECT_EQ(PacketNames::parse("deviceinformation"), static_cast<PacketType>(0));
    EXPECT_EQ(PacketNames::parse("FirmwareUpgradeCommand"), static_cast<PacketType>(40));
    EXPECT_EQ(PacketNames::parse("0"), static_cast<PacketType>(0));
    EXPECT_EQ(PacketNames::parse("255"), static_cast<PacketType>(255));
}

TEST(PacketNames, anythingElse_isNone)
{
    for (const char* const text : {"", "256", "-1", "1x", " 1", "Device", "0x10"})
        EXPECT_FALSE(PacketNames::parse(text)) << text;
}

} // namespace Vantor
