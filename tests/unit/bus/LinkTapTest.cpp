#include "simulator/bus/LinkTap.h"
#include "tests/support/UrbText.h"

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LinkTapTest : public testing::Test {
protected:
    std::vector<CapturedUrb> m_urbs;
    const LinkTap m_tap{[this](CapturedUrb urb) { m_urbs.push_back(std::move(urb)); }, {3, 9}, 2};
    const LinkTap::Transfer m_write{7, 0x02, 0, 4, std::nullopt};
    const LinkTap::Transfer m_read{8, 0x81, 0, 512, std::nullopt};
};

TEST_F(LinkTapTest, data_isWhereUsbmonHasIt)
{
    m_tap.submit(m_write, {1, 2, 3, 4});
    m_tap.submit(m_read, {});
    m_tap.complete(m_write, 0, 4, {});
    m_tap.complete(m_read, 0, 2, {5, 6});
    EXPECT_THAT(textsOf(m_urbs),
                ElementsAre("S bulk 02 -115 4 01020304", "S bulk 81 -115 512", "C bulk 02 0 4", "C bulk 81 0 2 0506"));
    std::string flags;
    for (const CapturedUrb& urb : m_urbs)
        flags += urb.dataFlag == 0 ? '0' : urb.dataFlag;
    EXPECT_EQ(flags, "0<>0");
}

TEST_F(LinkTapTest, anUnsuccessfulTransfer_hasItsStatusAndNoData)
{
    m_tap.complete(m_write, -EPIPE, 0, {});
    m_tap.complete(m_read, -ESHUTDOWN, 0, {});
    EXPECT_THAT(textsOf(m_urbs), ElementsAre("C bulk 02 -32 0", "C bulk 81 -108 0"));
}

TEST_F(LinkTapTest, everyFrame_saysWhereAndWhich)
{
    m_tap.submit(m_write, {1, 2, 3, 4});
    m_tap.complete(m_write, 0, 4, {});
    for (const CapturedUrb& urb : m_urbs) {
        EXPECT_EQ(urb.bus, 3);
        EXPECT_EQ(urb.device, 9);
        EXPECT_EQ(urb.id, 0x200000007U);
        EXPECT_EQ(urb.setupFlag, '-');
    }
}

TEST_F(LinkTapTest, flags_areThoseOfTheKernel)
{
    m_tap.submit({1, 0x02, 0x45, 4, std::nullopt}, {1, 2, 3, 4}); // with one that only usbfs knows
    m_tap.submit({2, 0x81, 0x01, 512, std::nullopt}, {});
    ASSERT_EQ(m_urbs.size(), 2U);
    EXPECT_EQ(m_urbs[0].flags, 0x41U);
    EXPECT_EQ(m_urbs[1].flags, 0x201U);
}

TEST_F(LinkTapTest, aRequestThatIsAnswered_isSubmittedAndComplete)
{
    m_tap.exchange(1, {0x80, 6, 0, 3, 0, 0, 255, 0}, {}, {0, {4, 3, 9, 4}});
    m_tap.exchange(2, {0x02, 1, 0, 0, 0x81, 0, 0, 0}, {}, {0, {}});
    m_tap.exchange(3, {0x40, 1, 0, 0, 0, 0, 2, 0}, {0xAA, 0xBB}, {-EPIPE, {}});
    m_tap.exchange(4, {0x40, 1, 0, 0, 0, 0, 2, 0}, {0xAA, 0xBB}, {0, {}});
    EXPECT_THAT(textsOf(m_urbs), ElementsAre("S control 80 -115 255 [800600030000ff00]", "C control 80 0 4 04030904",
                                             "S control 00 -115 0 [0201000081000000]", "C control 00 0 0",
                                             "S control 00 -115 2 [4001000000000200] aabb", "C control 00 -32 0",
                                             "S control 00 -115 2 [4001000000000200] aabb", "C control 00 0 2"));
}

TEST(LinkTap, withoutAListener_nothingHappens)
{
    const LinkTap tap;
    EXPECT_FALSE(tap.isOpen());
    tap.submit({1, 0x02, 0, 1, std::nullopt}, {1});
    tap.complete({1, 0x02, 0, 1, std::nullopt}, 0, 1, {});
    tap.exchange(2, {}, {}, {0, {}});
}

} // namespace
} // namespace Vantor
