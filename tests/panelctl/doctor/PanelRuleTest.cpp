#include "panelctl/doctor/PanelRule.h"
#include "panelctl/session/UsbIds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

TEST(PanelRule, ownRule_namesAllOwnIdsAndPlugdev)
{
    for (const std::string& id : UsbIds::list())
        EXPECT_EQ(PanelRule::findGroup(PanelRule::findStatement(PanelRule::text, id)), "plugdev") << id;
    EXPECT_EQ(PanelRule::findStatement(PanelRule::text, "0c0d:beef"), "");
}

TEST(PanelRule, strippedRule_hasStatementsAlone)
{
    EXPECT_EQ(PanelRule::strip("# one\n\n  A==\"1\"\t\r\n\t# two\nB==\"2\""), "A==\"1\"\nB==\"2\"\n");
}

TEST(PanelRule, statement_isTheOneWithVendorAndProduct)
{
    const std::string rule = "ATTR{idVendor}==\"dead\", ATTR{idProduct}==\"0001\", GROUP=\"a\"\n"
                             "# ATTR{idVendor}==\"dead\", ATTR{idProduct}==\"beef\", GROUP=\"b\"\n"
                             "ATTR{idVendor}==\"dead\", ATTR{idProduct}==\"beef\", GROUP:=\"c\"\n";
    EXPECT_EQ(PanelRule::findGroup(PanelRule::findStatement(rule, "dead:beef")), "c");
    EXPECT_EQ(PanelRule::findGroup("MODE=\"0666\""), "");
}

} // namespace Vantor
