#include "simulator/panel/ControlEndpoint.h"

#include "simulator/panel/PanelDescriptors.h"
#include "tests/unit/panel/PanelModelFixture.h"

#include <cerrno>

namespace Vantor {

// A panel as a host finds it: without a configuration.
class ControlEndpointTest : public PanelModelFixture {
protected:
    using Setup = ControlEndpoint::Setup;

    Bytes read(const Setup& setup)
    {
        const ControlEndpoint::Answer answer = m_control.answer(setup);
        EXPECT_EQ(answer.status, 0);
        return answer.data;
    }

    int statusOf(const Setup& setup)
    {
        const ControlEndpoint::Answer answer = m_control.answer(setup);
        EXPECT_TRUE(answer.data.empty());
        return answer.status;
    }

    void haltOut() { m_panel.inject(fault(PanelFault::Direction::Out, PanelFault::Kind::Stall, true)); }
    void haltIn() { m_panel.inject(fault(PanelFault::Direction::In, PanelFault::Kind::Stall, true)); }

    const Setup setConfiguration{0x00, 9, 1, 0, 0, 0, 0, 0};
    const Setup getOutStatus{0x82, 0, 0, 0, 0x02, 0, 2, 0};
    const Setup getInStatus{0x82, 0, 0, 0, 0x81, 0, 2, 0};

    PanelModel m_panel{options(), [] { return std::chrono::nanoseconds(0); }};
    ControlEndpoint m_control{m_panel, 0};
};

TEST_F(ControlEndpointTest, descriptors_asFarAsAskedFor)
{
    const Bytes all = makePanelDescriptors(0xDEAD, 0xBEEF);
    EXPECT_EQ(read({0x80, 6, 0, 1, 0, 0, 64, 0}), Bytes(all.begin(), all.begin() + 18));
    EXPECT_EQ(read({0x80, 6, 0, 1, 0, 0, 8, 0}), Bytes(all.begin(), all.begin() + 8));
    EXPECT_EQ(read({0x80, 6, 0, 2, 0, 0, 9, 0}), Bytes(all.begin() + 18, all.begin() + 27));
    EXPECT_EQ(read({0x80, 6, 0, 2, 0, 0, 0, 1}), Bytes(all.begin() + 18, all.end())); // 256 bytes at most
    EXPECT_EQ(read({0x80, 6, 0, 3, 0, 0, 255, 0}), (Bytes{4, 3, 0x09, 0x04}));
    EXPECT_EQ(read({0x80, 6, 1, 3, 0x09, 0x04, 2, 0}), (Bytes{18, 3}));
}

TEST_F(ControlEndpointTest, descriptorsItDoesNotHave_stall)
{
    EXPECT_EQ(statusOf({0x80, 6, 1, 2, 0, 0, 9, 0}), -EPIPE);  // a second configuration
    EXPECT_EQ(statusOf({0x80, 6, 3, 3, 9, 4, 9, 0}), -EPIPE);  // a third string
    EXPECT_EQ(statusOf({0x80, 6, 0, 6, 0, 0, 10, 0}), -EPIPE); // a device qualifier: it has one speed
    EXPECT_EQ(statusOf({0x81, 6, 0, 1, 0, 0, 18, 0}), -EPIPE); // of an interface
}

TEST_F(ControlEndpointTest, configuration_isSetAndRead)
{
    const Setup getConfiguration{0x80, 8, 0, 0, 0, 0, 1, 0};
    EXPECT_EQ(read(getConfiguration), Bytes{0});
    EXPECT_EQ(statusOf({0x00, 9, 2, 0, 0, 0, 0, 0}), -EPIPE);
    EXPECT_EQ(statusOf({0x00, 9, 1, 1, 0, 0, 0, 0}), -EPIPE); // 257
    EXPECT_EQ(statusOf({0x01, 9, 1, 0, 0, 0, 0, 0}), -EPIPE); // of an interface
    EXPECT_EQ(read(getConfiguration), Bytes{0});
    EXPECT_EQ(statusOf(setConfiguration), 0);
    EXPECT_EQ(read(getConfiguration), Bytes{1});
    EXPECT_EQ(m_control.getConfiguration(), 1);
    EXPECT_EQ(statusOf({0x00, 9, 0, 0, 0, 0, 0, 0}), 0);
    EXPECT_EQ(read(getConfiguration), Bytes{0});
}

TEST_F(ControlEndpointTest, interface_hasOneSettingOnceConfigured)
{
    const Setup setInterface{0x01, 11, 0, 0, 0, 0, 0, 0};
    const Setup getInterface{0x81, 10, 0, 0, 0, 0, 1, 0};
    EXPECT_EQ(statusOf(setInterface), -EPIPE);
    EXPECT_EQ(statusOf(getInterface), -EPIPE);
    statusOf(setConfiguration);
    EXPECT_EQ(statusOf(setInterface), 0);
    EXPECT_EQ(read(getInterface), Bytes{0});
    EXPECT_EQ(statusOf({0x01, 11, 1, 0, 0, 0, 0, 0}), -EPIPE); // setting 1
    EXPECT_EQ(statusOf({0x01, 11, 0, 0, 1, 0, 0, 0}), -EPIPE); // interface 1
    EXPECT_EQ(statusOf({0x81, 10, 0, 0, 1, 0, 1, 0}), -EPIPE);
}

TEST_F(ControlEndpointTest, status_ofDeviceAndInterface)
{
    EXPECT_EQ(read({0x80, 0, 0, 0, 0, 0, 2, 0}), (Bytes{1, 0})); // self-powered
    EXPECT_EQ(read({0x81, 0, 0, 0, 0, 0, 2, 0}), (Bytes{0, 0}));
    EXPECT_EQ(statusOf({0x81, 0, 0, 0, 1, 0, 2, 0}), -EPIPE);
    EXPECT_EQ(read({0x82, 0, 0, 0, 0x80, 0, 2, 0}), (Bytes{0, 0}));
    EXPECT_EQ(statusOf({0x82, 0, 0, 0, 0x83, 0, 2, 0}), -EPIPE);
    EXPECT_EQ(statusOf({0x82, 0, 0, 0, 0x02, 1, 2, 0}), -EPIPE); // endpoint 0x102
}

TEST_F(ControlEndpointTest, halt_isSeenAndClearedOnItsEndpoint)
{
    haltOut();
    haltIn();
    EXPECT_EQ(read(getOutStatus), (Bytes{1, 0}));
    EXPECT_EQ(read(getInStatus), (Bytes{1, 0}));
    EXPECT_EQ(statusOf({0x02, 1, 0, 0, 0x02, 0, 0, 0}), 0);
    EXPECT_EQ(read(getOutStatus), (Bytes{0, 0}));
    EXPECT_EQ(read(getInStatus), (Bytes{1, 0}));
    EXPECT_EQ(statusOf({0x02, 1, 0, 0, 0x81, 0, 0, 0}), 0);
    EXPECT_EQ(read(getInStatus), (Bytes{0, 0}));
}

TEST_F(ControlEndpointTest, clearHalt_ofNoEndpointOfThePanelStalls)
{
    haltOut();
    EXPECT_EQ(statusOf({0x02, 1, 0, 0, 0x83, 0, 0, 0}), -EPIPE);
    EXPECT_EQ(statusOf({0x02, 1, 0, 0, 0x02, 1, 0, 0}), -EPIPE); // endpoint 0x102
    EXPECT_EQ(statusOf({0x02, 1, 1, 0, 0x02, 0, 0, 0}), -EPIPE); // feature 1
    EXPECT_EQ(statusOf({0x00, 1, 0, 0, 0x02, 0, 0, 0}), -EPIPE); // of the device
    EXPECT_EQ(statusOf({0x02, 1, 0, 0, 0x80, 0, 0, 0}), 0);      // endpoint 0 never halts
    EXPECT_EQ(read(getOutStatus), (Bytes{1, 0}));
}

// By the rules of USB; but a halt from before the host came has not been met yet.
TEST_F(ControlEndpointTest, haltBeforeTheFirstConfiguration_staysUntilTheNext)
{
    haltOut();
    haltIn();
    statusOf(setConfiguration);
    EXPECT_TRUE(m_panel.isHalted(0x02));
    EXPECT_TRUE(m_panel.isHalted(0x81));
    statusOf(setConfiguration);
    EXPECT_FALSE(m_panel.isHalted(0x02));
    EXPECT_FALSE(m_panel.isHalted(0x81));
    haltOut();
    haltIn();
    statusOf({0x01, 11, 0, 0, 0, 0, 0, 0}); // the interface, too
    EXPECT_FALSE(m_panel.isHalted(0x02));
    EXPECT_FALSE(m_panel.isHalted(0x81));
}

TEST_F(ControlEndpointTest, otherRequests_stall)
{
    EXPECT_EQ(statusOf({0xC0, 6, 0, 1, 0, 0, 18, 0}), -EPIPE); // a vendor's
    EXPECT_EQ(statusOf({0x21, 9, 0, 0, 0, 0, 0, 0}), -EPIPE);  // a class's
    EXPECT_EQ(statusOf({0x80, 99, 0, 0, 0, 0, 1, 0}), -EPIPE);
    EXPECT_EQ(statusOf({0x00, 99, 0, 0, 0, 0, 0, 0}), -EPIPE);
    EXPECT_EQ(statusOf({0x02, 3, 0, 0, 0x02, 0, 0, 0}), -EPIPE); // halting is the panel's own
}

} // namespace Vantor
