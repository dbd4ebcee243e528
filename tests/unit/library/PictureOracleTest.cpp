// Layers that go through the packer, as slices of any size, and come together again on
// the simulated panel's LCDs: the picture that arrives is the picture composed. Where it
// is not, the second half pins what arrives instead.

#include "libMorvaneHostUsb/LcdPicture.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "simulator/panel/PanelModel.h"

#include "tests/support/PackedBytes.h"

#include "tests/support/LiteralDither.h"
#include "tests/support/LiteralPicture.h"
#include "tests/support/Random.h"
#include "tests/support/Seeds.h"

#include <algorithm>
#include <map>
#include <set>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

using Codes = std::vector<std::uint32_t>;
using Pixels = std::vector<std::uint32_t>;

constexpr std::uint32_t white = 0xFFFFFF;
constexpr std::uint32_t black = 0x000000;

// A panel that takes packets as they come.
class Panel {
public:
    explicit Panel(unsigned int limit, std::map<std::uint16_t, PanelScreen::Size> lcdSizes = {})
        : m_model(options(limit, std::move(lcdSizes)), [] { return std::chrono::nanoseconds(0); })
    {}

    void take(const Bytes& packet)
    {
        m_model.submitOut(this, ++m_urb, packet, true);
        const auto completions = m_model.takeCompletions();
        ASSERT_EQ(completions.size(), 1u);
        ASSERT_EQ(completions[0].status, 0);
    }

    const std::vector<std::string>& getViolations() const { return m_model.getViolations(); }

    // White, as a screen begins, when nothing has been drawn on it.
    Pixels pixels(std::uint16_t lcd, std::size_t size) const
    {
        const auto screen = m_model.getScreens().find(lcd);
        return screen != m_model.getScreens().end() ? screen->second.getPixels() : Pixels(size, white);
    }

    std::uint32_t pixel(std::uint16_t lcd, unsigned int x, unsigned int y) const
    {
        return m_model.getScreens().at(lcd).getPixel(x, y);
    }

private:
    static PanelModel::Options options(unsigned int limit, std::map<std::uint16_t, PanelScreen::Size> lcdSizes)
    {
        PanelModel::Options options;
        options.maxPacketSize = static_cast<std::uint16_t>(limit);
        options.keepRecords = false;
        options.lcdSizes = std::move(lcdSizes);
        return options;
    }

    PanelModel m_model;
    PanelModel::UrbId m_urb = 0;
};

struct Layer {
    ClientLcdBitmap bitmap;
    Codes codes;
};

Layer rawLayer(unsigned int width, unsigned int height, unsigned int depth, const Codes& codes)
{
    ClientLcdBitmap bitmap(static_cast<unsigned char>(width), static_cast<unsigned char>(height),
                           static_cast<unsigned char>(depth));
    bitmap.buffer = literalBits(depth, codes);
    return {bitmap, codes};
}

Layer encodedLayer(unsigned int width, unsigned int height, unsigned int depth, const Codes& codes)
{
    ClientLcdBitmap bitmap(static_cast<unsigned char>(width), static_cast<unsigned char>(height),
                           static_cast<unsigned char>(depth));
    bitmap.buffer.resize(std::size_t{4} * (width + 1) * height);
    bitmap.encoded = 1;
    PriorityPacker::compressImage(codes.data(), static_cast<int>(width), static_cast<int>(height), 0, 0, bitmap);
    EXPECT_GT(bitmap.encodedSize, 0u);
    return {bitmap, codes};
}

// Random layers on three LCDs, in packets of a random limit, with records and locks in
// between.
class PictureSchedule {
public:
    explicit PictureSchedule(unsigned int seed)
        : m_random(seed), m_limit(m_random.oneIn(2) ? m_random.between(30, 300) : m_random.between(300, 9000)),
          m_packer(m_limit), m_panel(m_limit, sizes)
    {
        for (const auto& [lcd, size] : sizes)
            m_expected.emplace(lcd, LiteralScreen(size.width, size.height));
    }

    void run()
    {
        for (int step = 0; step < 120 && !testing::Test::HasFailure(); ++step) {
            switch (m_random.below(8)) {
            case 0:
            case 1:
                draw();
                break;
            case 2:
                lockOrUnlock();
                break;
            case 3:
                writeRecord();
                break;
            default:
                pack();
            }
        }
        for (const std::uint16_t lcd : std::set<std::uint16_t>(m_locked))
            unlock(lcd);
        for (int idle = 0; m_packer.hasMoreData() && idle < 3 && !testing::Test::HasFailure();)
            idle = pack() ? 0 : idle + 1;
        EXPECT_FALSE(m_packer.hasMoreData());
        for (const auto& [lcd, screen] : m_expected)
            EXPECT_TRUE(shown(lcd) == screen.getPixels()) << "LCD " << lcd;
        EXPECT_EQ(m_panel.getViolations(), std::vector<std::string>{});
    }

private:
    // All larger and smaller than what is drawn on them.
    static inline const std::map<std::uint16_t, PanelScreen::Size> sizes = {
        {0, {144, 168}}, {7, {128, 64}}, {300, {510, 300}}};

    std::uint16_t someLcd() { return std::next(sizes.begin(), m_random.below(3))->first; }

    Pixels shown(std::uint16_t lcd) const
    {
        const PanelScreen::Size size = sizes.at(lcd);
        return m_panel.pixels(lcd, std::size_t{size.width} * size.height);
    }

    void draw()
    {
        const Layer layer = m_random.oneIn(2) ? someRaw() : someEncoded();
        ClientLcdBitmap bitmap(layer.bitmap);
        bitmap.lcd = someLcd();
        bitmap.x = static_cast<std::uint8_t>(m_random.below(256));
        // No further down than row 255, where the slices' rows wrap.
        bitmap.y = static_cast<std::uint8_t>(m_random.below(257u - bitmap.height));
        m_packer.drawBitmapData(bitmap);
        m_expected.at(bitmap.lcd).draw(bitmap.x, bitmap.y, bitmap.width, bitmap.bitsPerPixel, layer.codes);
    }

    unsigned int someHeight() { return m_random.oneIn(3) ? m_random.between(1, 255) : m_random.between(1, 30); }

    // Whole bytes a row, and a row fits a packet.
    Layer someRaw()
    {
        const unsigned int depth = someDepth();
        const unsigned int step = depth == 1 ? 8 : depth == 12 ? 2 : 1;
        const unsigned int widest = std::min(255u, (m_limit - 18) * 8 / depth) / step;
        const unsigned int width = step * m_random.between(1, widest);
        const unsigned int height = someHeight();
        Codes codes(std::size_t{width} * height);
        for (std::uint32_t& code : codes)
            code = m_random.below(1U << depth);
        return rawLayer(width, height, depth, codes);
    }

    // A row fits a packet, and no run reads as a row marker.
    Layer someEncoded()
    {
        const unsigned int depth = someDepth();
        const unsigned int width = m_random.between(1, 255);
        const unsigned int height = someHeight();
        const unsigned int mostRuns = std::min(width, (m_limit - 19) / 4 - 1);
        Codes codes;
        for (unsigned int row = 0; row < height; ++row)
            appendRuns(codes, width, m_random.between(1, mostRuns), depth);
        return encodedLayer(width, height, depth, codes);
    }

    void appendRuns(Codes& codes, unsigned int width, unsigned int runs, unsigned int depth)
    {
        for (; runs > 0; --runs) {
            const unsigned int count = runs == 1 ? width : m_random.between(1, width - runs + 1);
            const std::uint32_t code = m_random.below(1U << depth);
            codes.insert(codes.end(), count, count == 255 && code == white ? black : code);
            width -= count;
        }
    }

    unsigned int someDepth()
    {
        constexpr unsigned int depths[] = {1, 8, 12, 16, 24};
        return depths[m_random.below(5)];
    }

    void lockOrUnlock()
    {
        const std::uint16_t lcd = someLcd();
        if (m_locked.count(lcd) != 0) {
            unlock(lcd);
            return;
        }
        m_packer.lockLcd(lcd);
        m_locked.insert(lcd);
    }

    void unlock(std::uint16_t lcd)
    {
        m_packer.unlockLcd(lcd);
        m_locked.erase(lcd);
    }

    void writeRecord()
    {
        const Bytes payload(m_random.between(0, m_limit - 11), 0x5A);
        m_packer.addStructData(payload.data(), static_cast<unsigned int>(payload.size()), typeOf(5));
    }

    bool pack()
    {
        m_packer.clearData();
        if (m_packer.prepareNextPacket() == 0)
            return false;
        std::map<std::uint16_t, Pixels> before;
        for (const std::uint16_t lcd : m_locked)
            before[lcd] = shown(lcd);
        m_panel.take(packetOf(m_packer));
        for (const auto& [lcd, pixels] : before)
            EXPECT_TRUE(shown(lcd) == pixels) << "LCD " << lcd << " is locked";
        return true;
    }

    Random m_random;
    unsigned int m_limit;
    PriorityPacker m_packer;
    Panel m_panel;
    std::map<std::uint16_t, LiteralScreen> m_expected;
    std::set<std::uint16_t> m_locked;
};

// Everything that waits, packet by packet, on a panel.
std::vector<Bytes> sendAll(PriorityPacker& packer, Panel& panel)
{
    std::vector<Bytes> packets;
    for (;;) {
        packer.clearData();
        if (packer.prepareNextPacket() == 0)
            return packets;
        packets.push_back(packetOf(packer));
        panel.take(packets.back());
    }
}

// Pixels of one row of LCD 0, '#' for black and '.' for white.
std::string rowOf(const Panel& panel, unsigned int y, unsigned int columns)
{
    std::string row;
    for (unsigned int x = 0; x < columns; ++x)
        row += panel.pixel(0, x, y) == black ? '#' : '.';
    return row;
}

// Greys at random, or with long runs.
Bytes someGreys(Random& random, std::size_t size)
{
    if (random.oneIn(2))
        return random.bytes(size);
    Bytes greys;
    while (greys.size() < size)
        greys.insert(greys.end(), std::min<std::size_t>(size - greys.size(), random.between(1, 400)),
                     static_cast<std::uint8_t>(random.below(256)));
    return greys;
}

// A picture of that width, anywhere on the LCD, over what it shows.
void drawSomePicture(Random& random, unsigned int width, PriorityPacker& packer, LiteralScreen& expected)
{
    const unsigned int height = random.oneIn(8) ? 255 : random.between(1, 12);
    const unsigned int x = random.below(256);
    const unsigned int y = random.below(257 - height);
    const Bytes greys = someGreys(random, std::size_t{width} * height);
    LcdPicture picture(greys.data(), width, height, BitmapImage::Gray8);
    picture.dither = static_cast<LcdHelper::DitherType>(random.below(4));
    picture.threshold = static_cast<int>(random.between(1, 255));
    picture.form = static_cast<LcdPicture::Form>(random.below(3));
    for (const ClientLcdBitmap& layer : picture.makeLayers(7, x, y))
        packer.drawBitmapData(layer);

    Codes codes;
    for (const std::uint8_t shade : LiteralDither::dither(greys, static_cast<int>(width), static_cast<int>(height),
                                                          picture.dither, picture.threshold))
        codes.push_back(shade == 0 ? 1 : 0);
    expected.draw(x, y, width, 1, codes);
}

ClientLcdBitmap columnOnLcd(std::uint16_t lcd, unsigned char rows)
{
    ClientLcdBitmap bitmap(8, rows, 1);
    bitmap.lcd = lcd;
    return bitmap;
}

} // namespace

TEST(PictureOracle, pictureThatArrives_isThePictureComposed)
{
    runSeeds(slowBuild ? 20 : 60, [](unsigned int seed) { PictureSchedule(seed).run(); });
}

// In packets of one long row of run-length words up to several pictures.
TEST(PictureOracle, greysOfEveryWidth_arriveAsTheDitheredPicture)
{
    runSeeds(slowBuild ? 1 : 3, [](unsigned int seed) {
        Random random(seed);
        const unsigned int limit = random.between(4 * 256 + 19, 9000);
        PriorityPacker packer(limit);
        Panel panel(limit, {{7, {510, 256}}});
        LiteralScreen expected(510, 256);
        for (unsigned int width = 1; width <= 255 && !testing::Test::HasFailure(); ++width) {
            drawSomePicture(random, width, packer, expected);
            if (random.oneIn(4))
                continue; // the next one may cover it, or lie over what waits
            sendAll(packer, panel);
            EXPECT_FALSE(packer.hasMoreData()) << "width " << width;
            EXPECT_TRUE(panel.pixels(7, 510 * 256) == expected.getPixels()) << "width " << width;
        }
        EXPECT_EQ(panel.getViolations(), std::vector<std::string>{});
    });
}

// Four rows of two pixels, every limit from one row a packet to all in one.
TEST(PictureOracle, rawPictureOfEveryDepth_arrivesWhateverTheSlicing)
{
    for (const unsigned int depth : {1u, 8u, 12u, 16u, 24u}) {
        const unsigned int width = depth == 1 ? 8 : 2;
        Codes codes;
        for (unsigned int i = 0; i < 4 * width; ++i)
            codes.push_back((i * 0x9E3779B9U >> 3) & ((1U << depth) - 1));
        LiteralScreen expected(144, 168);
        expected.draw(3, 5, width, depth, codes);
        const unsigned int rowBytes = width * depth / 8;
        for (unsigned int limit = 18 + rowBytes; limit <= 18 + 4 * rowBytes; ++limit) {
            PriorityPacker packer(limit);
            Panel panel(limit);
            Layer layer = rawLayer(width, 4, depth, codes);
            layer.bitmap.x = 3;
            layer.bitmap.y = 5;
            packer.drawBitmapData(layer.bitmap);
            sendAll(packer, panel);
            EXPECT_FALSE(packer.hasMoreData());
            EXPECT_TRUE(panel.pixels(0, 0) == expected.getPixels()) << "depth " << depth << ", limit " << limit;
            EXPECT_EQ(panel.getViolations(), std::vector<std::string>{});
        }
    }
}

TEST(PictureOracle, colours_areThoseOfTheirDepth)
{
    const struct {
        unsigned int depth;
        std::uint32_t code;
        std::uint32_t colour;
    } cases[] = {{8, 0b101'011'10, 0xB66DAA}, {12, 0x4F8, 0x44FF88}, {16, 0xA5C3, 0xA4BA18}, {24, 0x123456, 0x123456}};
    for (const auto& [depth, code, colour] : cases) {
        PriorityPacker packer(1000);
        Panel panel(1000);
        packer.drawBitmapData(rawLayer(2, 1, depth, {code, code}).bitmap);
        Layer encoded = encodedLayer(2, 1, depth, {code, code});
        encoded.bitmap.y = 1;
        packer.drawBitmapData(encoded.bitmap);
        sendAll(packer, panel);
        EXPECT_EQ(panel.pixel(0, 1, 0), colour) << "raw, depth " << depth;
        EXPECT_EQ(panel.pixel(0, 1, 1), colour) << "encoded, depth " << depth;
    }
}

// A row of 9 runs is 40 bytes. Behind 8 bytes of packet and 10 of slice, a row that is
// followed by another needs one byte more than its own.
TEST(PictureOracle, encodedRow_fitsAPacketOf19BytesMore)
{
    Codes codes;
    for (unsigned int i = 0; i < 18; ++i)
        codes.push_back(i);
    for (const unsigned int limit : {58u, 59u}) {
        PriorityPacker packer(limit);
        Panel panel(limit);
        packer.drawBitmapData(encodedLayer(9, 2, 24, codes).bitmap);
        EXPECT_EQ(sendAll(packer, panel).size(), limit == 59 ? 2u : 0u);
    }
    PriorityPacker packer(58);
    Panel panel(58);
    packer.drawBitmapData(encodedLayer(9, 1, 24, Codes(codes.begin(), codes.begin() + 9)).bitmap);
    EXPECT_EQ(sendAll(packer, panel).size(), 1u);
}

// 15 bits make one whole byte: the last 7 pixels are never sent, sliced or not.
TEST(PictureOracle, rawLayerWithoutWholeBytes_losesItsLastPixels)
{
    PriorityPacker packer(1000);
    Panel panel(1000);
    packer.drawBitmapData(rawLayer(5, 3, 1, Codes(15, 1)).bitmap);
    EXPECT_EQ(sendAll(packer, panel),
              (std::vector<Bytes>{{19, 0, 1, 0, 0, 0, 0, 0, 38, 8, 0, 0, 0, 0, 0, 5, 3, 1, 0xFF}}));
    EXPECT_EQ(rowOf(panel, 0, 6), "#####.");
    EXPECT_EQ(rowOf(panel, 1, 6), "###...");
    EXPECT_EQ(rowOf(panel, 2, 6), "......");
    EXPECT_EQ(panel.getViolations(), std::vector<std::string>{});
}

// Three rows of 12 pixels are 36 bits, of which 4 bytes go out. Row 3 begins at the next
// byte, 4 pixels too early in the picture: what was to be row 2's end is its beginning.
TEST(PictureOracle, rawRowsWithoutWholeBytes_shiftBetweenSlices)
{
    const Bytes bits = {0b11111111, 0b1111'0000, 0b00000000, 0b11111111, 0b1010'0011, 0b00110011};
    PriorityPacker packer(8 + 16);
    Panel panel(8 + 16);
    ClientLcdBitmap bitmap(12, 4, 1);
    bitmap.buffer = bits;
    packer.drawBitmapData(bitmap);
    EXPECT_EQ(sendAll(packer, panel),
              (std::vector<Bytes>{{22, 0, 1, 0, 0, 0, 0, 0, 38, 11, 0, 0, 0, 0, 0, 12, 3, 1, 0xFF, 0xF0, 0x00, 0xFF},
                                  {19, 0, 1, 0, 0, 0, 0, 0, 38, 8, 0, 0, 0, 0, 3, 12, 1, 1, 0xA3}}));
    EXPECT_EQ(rowOf(panel, 0, 12), "############");
    EXPECT_EQ(rowOf(panel, 1, 12), "............");
    EXPECT_EQ(rowOf(panel, 2, 12), "########....");
    EXPECT_EQ(rowOf(panel, 3, 12), "#.#...##....");
}

// 255 white pixels and a row marker are the same word: the panel sees rows without pixels.
TEST(PictureOracle, encodedRowOf255WhitePixels_isReadAsTwoMarkers)
{
    PriorityPacker packer(1000);
    Panel panel(1000);
    packer.drawBitmapData(encodedLayer(255, 1, 24, Codes(255, white)).bitmap);
    const std::vector<Bytes> packets = sendAll(packer, panel);
    EXPECT_EQ(packets, (std::vector<Bytes>{{26, 0, 1,   0, 0,  0,    0,    0,    46,   15,   0,    0,    0,
                                            0,  0, 255, 1, 24, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}}));
    ASSERT_EQ(panel.getViolations().size(), 1u);
    EXPECT_NE(panel.getViolations()[0].find("a row marker after 0 of 255 pixels"), std::string::npos)
        << panel.getViolations()[0];
}

// Cut into slices, the layer ends early as well: four words within reach are four
// markers, and so more rows than the layer has.
TEST(PictureOracle, encodedRowsOf255WhitePixels_endTheLayerEarly)
{
    PriorityPacker packer(8 + 10 + 16);
    Panel panel(8 + 10 + 16);
    packer.drawBitmapData(encodedLayer(255, 3, 24, Codes(255 * 3, white)).bitmap);
    const std::vector<Bytes> packets = sendAll(packer, panel);
    ASSERT_EQ(packets.size(), 1u); // 12 of the 24 bytes
    EXPECT_EQ(packets[0], (Bytes{30,  0, 1,  0,    0,    0,    0,    0,    46,   19,   0,    0,    0,    0,    0,
                                 255, 3, 24, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(panel.getViolations().size(), 1u);
    EXPECT_FALSE(packer.hasMoreData());
}

// One shade off white is another word.
TEST(PictureOracle, encodedRowOf255AlmostWhitePixels_arrives)
{
    PriorityPacker packer(1000);
    Panel panel(1000, {{0, {255, 1}}});
    packer.drawBitmapData(encodedLayer(255, 1, 24, Codes(255, 0xFFFFFE)).bitmap);
    sendAll(packer, panel);
    EXPECT_TRUE(panel.pixels(0, 0) == Pixels(255, 0xFFFFFE));
    EXPECT_EQ(panel.getViolations(), std::vector<std::string>{});
}

// One packet of 28 bytes takes ten rows of a byte; rows 256 to 259 are rows 0 to 3 of
// the second slice.
TEST(PictureOracle, rowsBelow255_wrapToTheTopWhenASliceBeginsThere)
{
    PriorityPacker packer(28);
    Panel panel(28, {{0, {8, 300}}});
    Layer layer = rawLayer(8, 14, 1, Codes(8 * 14, 1));
    layer.bitmap.y = 246;
    packer.drawBitmapData(layer.bitmap);
    const std::vector<Bytes> packets = sendAll(packer, panel);
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[0].at(14), 246);
    EXPECT_EQ(packets[1].at(14), 0);
    EXPECT_EQ(rowOf(panel, 3, 8), "########");
    EXPECT_EQ(rowOf(panel, 4, 8), "........");
    EXPECT_EQ(rowOf(panel, 255, 8), "########");
    EXPECT_EQ(rowOf(panel, 256, 8), "........");
}

// The cursor stays on the layer's LCD from packet to packet.
TEST(PictureOracle, layerThatNeverFits_stopsEveryLcdButNoRecord)
{
    std::vector<ClientLcdBitmap> stuck = {
        ClientLcdBitmap(240, 1, 1), // a row of 30 bytes in packets that take 20
        ClientLcdBitmap(0, 5, 8),
        ClientLcdBitmap(5, 0, 8),
        ClientLcdBitmap(5, 5, 0),
        ClientLcdBitmap(8, 4, 1),                 // its buffer is cut below
        encodedLayer(3, 1, 24, {1, 2, 3}).bitmap, // what does not fit has encodedSize 0
        encodedLayer(9, 2, 24, Codes{1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9}).bitmap, // 40 bytes a row
    };
    stuck[4].buffer.resize(1);
    stuck[5].encodedSize = 0;
    for (ClientLcdBitmap& bitmap : stuck) {
        SCOPED_TRACE(testing::Message() << "layer " << &bitmap - stuck.data());
        PriorityPacker packer(8 + 10 + 20);
        Panel panel(8 + 10 + 20);
        bitmap.lcd = 5;
        packer.drawBitmapData(columnOnLcd(2, 30));
        packer.drawBitmapData(bitmap);
        packer.drawBitmapData(columnOnLcd(9, 4));
        ASSERT_EQ(sendAll(packer, panel).size(), 1u); // LCD 2's first 20 rows, then LCD 5's turn
        const std::uint8_t payload = 1;
        packer.addStructData(&payload, 1, typeOf(7));
        EXPECT_EQ(sendAll(packer, panel).size(), 1u);
        EXPECT_TRUE(packer.hasMoreData());
    }
}

TEST(PictureOracle, layerThatNeverFits_isPassedWhileItsLcdIsLocked)
{
    PriorityPacker packer(8 + 10 + 20);
    Panel panel(8 + 10 + 20);
    ClientLcdBitmap stuck(240, 1, 1);
    stuck.lcd = 5;
    packer.drawBitmapData(stuck);
    packer.drawBitmapData(columnOnLcd(9, 4));
    EXPECT_EQ(sendAll(packer, panel).size(), 0u);
    packer.lockLcd(5);
    EXPECT_EQ(sendAll(packer, panel).size(), 1u);
    EXPECT_TRUE(packer.hasMoreData());
}

TEST(PictureOracle, layerThatNeverFits_isRemovedByOneThatCoversIt)
{
    PriorityPacker packer(8 + 10 + 20);
    Panel panel(8 + 10 + 20);
    packer.drawBitmapData(ClientLcdBitmap(100, 1, 8));
    packer.drawBitmapData(columnOnLcd(9, 4));
    EXPECT_EQ(sendAll(packer, panel).size(), 0u);
    packer.drawBitmapData(ClientLcdBitmap(120, 1, 1));
    EXPECT_EQ(sendAll(packer, panel).size(), 2u);
    EXPECT_FALSE(packer.hasMoreData());
}

// Nor does it go out behind other slices, so a panel that always has records to take, or
// an LCD in front that always has slices, holds it back.
TEST(PictureOracle, encodedLayer_waitsWhileEveryPacketBeginsWithARecord)
{
    PriorityPacker packer(1000);
    Panel panel(1000);
    packer.drawBitmapData(encodedLayer(3, 1, 24, {1, 2, 3}).bitmap);
    packer.drawBitmapData(columnOnLcd(9, 4));
    for (int packet = 0; packet < 3; ++packet) {
        packer.clearData();
        const std::uint8_t payload = 1;
        packer.addStructData(&payload, 1, typeOf(7));
        EXPECT_EQ(packer.prepareNextPacket(), 1u);
    }
    EXPECT_EQ(sendAll(packer, panel).size(), 1u);
    EXPECT_FALSE(packer.hasMoreData());
}

} // namespace Vantor
