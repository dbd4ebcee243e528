#include "tests/unit/panel/PanelModelFixture.h"

#include <initializer_list>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>

namespace Vantor {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;

using Pixels = std::vector<std::uint32_t>;

constexpr std::uint8_t raw = 38;
constexpr std::uint8_t encoded = 46;
constexpr std::uint32_t b = 0x000000;
constexpr std::uint32_t w = 0xFFFFFF;
const Bytes marker{0xFF, 0xFF, 0xFF, 0xFF};

std::uint8_t low(std::size_t value)
{
    return static_cast<std::uint8_t>(value);
}

Bytes record(std::uint8_t type, const Bytes& payload)
{
    return joined({{type, low(payload.size()), low(payload.size() >> 8)}, payload});
}

Bytes packet(std::uint8_t count, const Bytes& records)
{
    const std::size_t size = 8 + records.size();
    return joined({{low(size), low(size >> 8), count, 0, 0, 0, 0, 0}, records});
}

// Panels whose LCD 1 has 10 × 4 pixels and LCD 2 has 510 × 510.
class PanelModelScreenTest : public PanelModelFixture {
protected:
    static PanelModel::Options lcdOptions()
    {
        PanelModel::Options result = options(65535);
        result.lcdSizes = {{1, {10, 4}}, {2, {510, 510}}};
        return result;
    }

    void send(const Bytes& transfer) { m_panel.submitOut(m_owner, ++m_urb, transfer, true); }
    void draw(std::uint8_t type, const Bytes& payload) { send(packet(1, record(type, payload))); }

    const PanelScreen& screen(std::uint16_t lcd)
    {
        static const PanelScreen none({1, 1});
        const auto found = m_panel.getScreens().find(lcd);
        EXPECT_NE(found, m_panel.getScreens().end()) << "LCD " << lcd;
        return found != m_panel.getScreens().end() ? found->second : none;
    }

    // Rows of LCD 1, # for black and . for white.
    std::vector<std::string> rows()
    {
        std::vector<std::string> result;
        for (unsigned int y = 0; y < 4; ++y) {
            result.emplace_back();
            for (unsigned int x = 0; x < 10; ++x)
                result.back() += screen(1).getPixel(x, y) == b ? '#' : screen(1).getPixel(x, y) == w ? '.' : '?';
        }
        return result;
    }

    PanelModel m_panel{lcdOptions(), clock()};
    PanelModel::UrbId m_urb = 0;
};

TEST_F(PanelModelScreenTest, noSlice_noScreen)
{
    send(packet(1, record(5, {1, 2, 3})));
    EXPECT_THAT(m_panel.getScreens(), IsEmpty());
}

TEST_F(PanelModelScreenTest, sizes_144x168UnlessTheOptionsSayOtherwise)
{
    draw(raw, {0, 0, 0, 0, 8, 1, 1, 0});
    draw(raw, {1, 0, 0, 0, 8, 1, 1, 0});
    draw(encoded, joined({{0xFF, 0xFF, 0, 0, 1, 1, 1}, marker, {1, 0, 0, 0}}));
    EXPECT_THAT(m_panel.getScreens(), ElementsAre(Key(0), Key(1), Key(0xFFFF)));
    EXPECT_EQ(screen(0).getWidth(), 144u);
    EXPECT_EQ(screen(0).getHeight(), 168u);
    EXPECT_EQ(screen(1).getWidth(), 10u);
    EXPECT_EQ(screen(1).getHeight(), 4u);
    EXPECT_THAT(screen(0xFFFF).getPixels(), Each(w));
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelScreenTest, impossibleSizes_throw)
{
    for (const PanelScreen::Size size : {PanelScreen::Size{0, 1}, {1, 511}}) {
        PanelModel::Options impossible = options();
        impossible.lcdSizes = {{4, size}};
        EXPECT_THROW(PanelModel(impossible, clock()), std::invalid_argument);
    }
}

TEST_F(PanelModelScreenTest, rawSlice_drawnAtItsPlace)
{
    draw(raw, {1, 0, 2, 1, 4, 2, 1, 0xA5});
    EXPECT_THAT(rows(), ElementsAre("..........", "..#.#.....", "...#.#....", ".........."));
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelScreenTest, encodedSlice_drawnAtItsPlace)
{
    draw(encoded,
         joined({{1, 0, 7, 2, 3, 2, 1}, marker, {3, 0, 0, 1}, marker, {1, 0, 0, 1}, {1, 0, 0, 0}, {1, 0, 0, 9}}));
    EXPECT_THAT(rows(), ElementsAre("..........", "..........", ".......###", ".......#.#"));
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelScreenTest, laterSlices_lieOnTop)
{
    draw(raw, {1, 0, 0, 0, 8, 2, 1, 0xFF, 0xFF});
    draw(raw, {1, 0, 2, 1, 4, 2, 1, 0x05});
    EXPECT_THAT(rows(), ElementsAre("########..", "##....##..", "...#.#....", ".........."));
}

TEST_F(PanelModelScreenTest, slicesOfOnePacket_allDrawnAmongOtherRecords)
{
    send(packet(
        4, joined({record(raw, {1, 0, 0, 0, 8, 1, 1, 0xF0}), record(5, {1}), record(raw, {1, 0, 0, 1, 8, 1, 1, 0x0F}),
                   record(raw, {2, 0, 0, 0, 1, 1, 24, 0x12, 0x34, 0x56})})));
    EXPECT_THAT(rows(), ElementsAre("####......", "....####..", "..........", ".........."));
    EXPECT_EQ(screen(2).getPixel(0, 0), 0x123456u);
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelScreenTest, lostBits_keepWhatTheLcdShowed)
{
    draw(raw, {1, 0, 0, 0, 8, 3, 1, 0xFF, 0xFF, 0xFF});
    // 3 × 3 = 9 bits, 1 byte: the last pixel gets nothing.
    draw(raw, {1, 0, 0, 0, 3, 3, 1, 0x00});
    EXPECT_THAT(rows(), ElementsAre("...#####..", "...#####..", "..######..", ".........."));
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelScreenTest, pastTheLcd_clippedWithoutAViolation)
{
    draw(raw, {1, 0, 8, 3, 4, 2, 1, 0xFF});
    EXPECT_THAT(rows(), ElementsAre("..........", "..........", "..........", "........##"));
    draw(raw, {1, 0, 10, 0, 8, 1, 1, 0xFF});
    draw(raw, {1, 0, 0, 4, 8, 1, 1, 0xFF});
    draw(raw, {1, 0, 255, 255, 8, 1, 1, 0xFF});
    draw(encoded, joined({{1, 0, 9, 2, 255, 1, 1}, marker, {255, 0, 0, 1}}));
    EXPECT_THAT(rows(), ElementsAre("..........", "..........", ".........#", "........##"));
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelScreenTest, columnAndRowBeyond255_doNotWrap)
{
    draw(encoded, joined({{2, 0, 255, 255, 255, 2, 24}, marker, {255, 0, 0, 5}, marker, {255, 0, 0, 6}}));
    EXPECT_EQ(screen(2).getPixel(255, 255), 5u);
    EXPECT_EQ(screen(2).getPixel(509, 255), 5u);
    EXPECT_EQ(screen(2).getPixel(509, 256), 6u);
    EXPECT_EQ(screen(2).getPixel(0, 255), w);
    EXPECT_EQ(screen(2).getPixel(254, 0), w);
    EXPECT_EQ(screen(2).getPixel(255, 0), w);
}

TEST_F(PanelModelScreenTest, contradiction_violationAndNothingDrawn)
{
    draw(raw, {1, 0, 0, 0, 8, 2, 1, 0xFF});
    // The first row of this one is sound.
    draw(encoded, joined({{1, 0, 0, 0, 4, 2, 1}, marker, {4, 0, 0, 1}, marker, {3, 0, 0, 1}}));
    draw(encoded, joined({{1, 0, 0, 0, 255, 1, 24}, marker, {255, 0xFF, 0xFF, 0xFF}}));
    draw(raw, {1, 0});
    EXPECT_THAT(m_panel.getScreens(), IsEmpty());
    EXPECT_THAT(m_panel.getViolations(),
                ElementsAre("OUT transfer 1, raw slice for LCD 1 at 0,0, 8x2, 1 bit per pixel: 1 byte of pixels, its "
                            "size makes 2",
                            "OUT transfer 2, encoded slice for LCD 1 at 0,0, 4x2, 1 bit per pixel: row 1: the data "
                            "ends after 3 of 4 pixels",
                            "OUT transfer 3, encoded slice for LCD 1 at 0,0, 255x1, 24 bits per pixel: row 0: a row "
                            "marker after 0 of 255 pixels",
                            "OUT transfer 4, raw slice of 2 bytes, its header has 7"));
    EXPECT_EQ(m_panel.getRecords().size(), 4u);
}

TEST_F(PanelModelScreenTest, rowsInAnySlices_samePicture)
{
    // 16 × 6 in 1 bit, two bytes a row; bit i of `cuts` cuts behind row i.
    const Bytes picture{0xF0, 0x81, 0x3C, 0x42, 0xAA, 0x55, 0x00, 0xFF, 0x12, 0x34, 0x80, 0x01};
    for (unsigned int cuts = 0; cuts < 32; ++cuts) {
        PanelModel panel(options(), clock());
        Bytes slices;
        std::uint8_t count = 0;
        for (std::size_t first = 0, row = 0; row < 6; ++row) {
            if (row != 5 && (cuts >> row & 1) == 0)
                continue;
            slices = joined({slices, record(raw, joined({{0, 0, 0, low(first), 16, low(row + 1 - first), 1},
                                                         part(picture, 2 * first, 2 * row + 2)}))});
            first = row + 1;
            ++count;
        }
        panel.submitOut(m_owner, 1, packet(count, slices), false);
        EXPECT_THAT(panel.getViolations(), IsEmpty());
        const PanelScreen& shown = panel.getScreens().at(0);
        for (unsigned int y = 0; y < 6; ++y)
            for (unsigned int x = 0; x < 16; ++x)
                ASSERT_EQ(shown.getPixel(x, y), (picture[2 * y + x / 8] >> (7 - x % 8) & 1) != 0 ? b : w)
                    << x << "," << y << " cut at " << cuts;
    }
}

TEST_F(PanelModelScreenTest, sliceInSeveralUrbs_likeInOne)
{
    // 255 × 60 × 24 bits = 45,900 bytes, and 18 before them: two URBs of 16 KiB and a rest.
    Bytes pixels(45'900);
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = low(i % 251);
    const Bytes whole = packet(1, record(raw, joined({{2, 0, 1, 2, 255, 60, 24}, pixels})));
    ASSERT_EQ(whole.size(), 45'918u);
    m_panel.submitOut(m_owner, 1, part(whole, 0, 16'384), false);
    m_panel.submitOut(m_owner, 2, part(whole, 16'384, 32'768), false);
    EXPECT_THAT(m_panel.getScreens(), IsEmpty());
    m_panel.submitOut(m_owner, 3, part(whole, 32'768, whole.size()), false);
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
    EXPECT_EQ(screen(2).getPixel(1, 2), 0x000102u);
    // The last one: bytes 45,897 to 45,899, and 45,897 = 182 × 251 + 215.
    EXPECT_EQ(screen(2).getPixel(255, 61), 0xD7D8D9u);
}

TEST_F(PanelModelScreenTest, cutTransfer_neitherDrawnNorAViolation)
{
    PanelFault shortened = fault(PanelFault::Direction::Out, PanelFault::Kind::Short);
    shortened.bytes = 18;
    m_panel.inject(shortened);
    draw(raw, {1, 0, 0, 0, 8, 1, 1, 0xFF});
    EXPECT_THAT(m_panel.getScreens(), IsEmpty());
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelScreenTest, observer_seesTheScreenDrawn)
{
    std::uint32_t seen = 1;
    m_panel.setRecordObserver([this, &seen](const PanelModel::Record&) { seen = screen(1).getPixel(0, 0); });
    draw(raw, {1, 0, 0, 0, 8, 1, 1, 0xFF});
    EXPECT_EQ(seen, b);
}

TEST_F(PanelModelScreenTest, unplug_screensStay)
{
    draw(raw, {1, 0, 0, 0, 8, 1, 1, 0xFF});
    m_panel.unplug();
    EXPECT_THAT(rows(), ElementsAre("########..", "..........", "..........", ".........."));
}

TEST_F(PanelModelScreenTest, everyLcdNumber_64ScreensAtMost)
{
    for (unsigned int lcd = 0; lcd <= 0xFFFF; ++lcd)
        draw(raw, {low(lcd), low(lcd >> 8), 0, 0, 8, 1, 1, 0xFF});
    EXPECT_EQ(m_panel.getScreens().size(), 64u);
    EXPECT_EQ(m_panel.getScreens().rbegin()->first, 63);
    EXPECT_EQ(m_panel.getViolations().size(), PanelModel::maxViolations + 1);
    EXPECT_EQ(m_panel.getViolations()[0],
              "OUT transfer 65, slice for LCD 64: 64 others are drawn on, a panel has no more");
    // Those that are there can still be drawn on.
    draw(raw, {63, 0, 0, 0, 8, 1, 1, 0x00});
    EXPECT_THAT(screen(63).getPixels(), Each(w));
}

} // namespace
} // namespace Vantor
