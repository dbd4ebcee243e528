#include "simulator/bus/PastViolations.h"

#include "tests/unit/panel/PanelModelFixture.h"

namespace Vantor {
namespace {

class PastViolationsTest : public PanelModelFixture {
protected:
    // Transfers without bytes.
    void violate(std::size_t times)
    {
        for (; times > 0; --times)
            m_panel.submitOut(m_owner, 1, {}, false);
    }

    PastViolations m_past;
};

TEST_F(PastViolationsTest, kept_inOrderWithThePanelsNumber)
{
    m_past.keep(3, m_panel);
    EXPECT_THAT(m_past.getLines(), testing::IsEmpty());
    violate(2);
    m_past.keep(3, m_panel);
    m_past.keep(4, m_panel);
    EXPECT_THAT(m_past.getLines(), testing::ElementsAre("panel 3: OUT transfer 1, byte 0: transfer without bytes",
                                                        "panel 3: OUT transfer 2, byte 0: transfer without bytes",
                                                        "panel 4: OUT transfer 1, byte 0: transfer without bytes",
                                                        "panel 4: OUT transfer 2, byte 0: transfer without bytes"));
}

TEST_F(PastViolationsTest, kept_upToTheLinesOfOnePanel)
{
    violate(600);
    for (int i = 0; i < 5; ++i)
        m_past.keep(0, m_panel);
    ASSERT_EQ(m_past.getLines().size(), PanelModel::maxViolations + 1);
    EXPECT_EQ(m_past.getLines()[PanelModel::maxViolations - 1],
              "panel 0: OUT transfer 400, byte 0: transfer without bytes");
    EXPECT_EQ(m_past.getLines().back(), "further violations of panels that were plugged back are not listed");
}

} // namespace
} // namespace Vantor
