// Grey pictures on 1-bit LCDs.

#include "libMorvaneHostUsb/LcdHelper.h"

#include "tests/support/PackedBytes.h"

#include "tests/support/EachPath.h"
#include "tests/support/LiteralComposite.h"
#include "tests/support/Random.h"
#include "tests/support/Seeds.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <map>

#include <gtest/gtest.h>
#include <sys/mman.h>

namespace Vantor {
namespace {

const Bytes black(8 * 8, 0);
constexpr int mid = 128;

// The bytes that are not 0, by their index.
std::map<std::size_t, int> setBytes(const std::uint8_t* bytes, std::size_t size)
{
    std::map<std::size_t, int> set;
    for (std::size_t i = 0; i < size; ++i) {
        if (bytes[i] != 0)
            set[i] = bytes[i];
    }
    return set;
}

template <typename Lcd> std::map<std::size_t, int> setBytes(const Lcd& lcd)
{
    return setBytes(lcd.data, sizeof lcd.data);
}

using Set = std::map<std::size_t, int>;

// A black square of `size` pixels a side, at most 8.
template <typename Lcd> Lcd withSquare(unsigned int size, int x, int y)
{
    Lcd lcd{};
    LcdHelper::compositeToLcd(&lcd, black.data(), size, size, x, y, mid);
    return lcd;
}

} // namespace

TEST(LcdHelperComposite, lcdBitmapPictureOf8RowsAtRow60_setsTheUpperHalfOfPage7)
{
    LcdBitmap lcd{};
    LcdHelper::compositeToLcd(&lcd, black.data(), 1, 8, 5, 60, mid);
    EXPECT_EQ(setBytes(lcd), (Set{{7 * 128 + 5, 0xF0}}));
}

TEST(LcdHelperComposite, lcdBitmapPage_hasItsTopRowInBit0)
{
    EXPECT_EQ(setBytes(withSquare<LcdBitmap>(1, 0, 0)), (Set{{0, 0x01}}));
    EXPECT_EQ(setBytes(withSquare<LcdBitmap>(1, 0, 7)), (Set{{0, 0x80}}));
    EXPECT_EQ(setBytes(withSquare<LcdBitmap>(1, 3, 8)), (Set{{128 + 3, 0x01}}));
    EXPECT_EQ(setBytes(withSquare<LcdBitmap>(1, 127, 63)), (Set{{1023, 0x80}}));
}

TEST(LcdHelperComposite, lcdBitmapEdges_clip)
{
    EXPECT_EQ(setBytes(withSquare<LcdBitmap>(4, 126, 61)), (Set{{7 * 128 + 126, 0xE0}, {7 * 128 + 127, 0xE0}}));
    EXPECT_EQ(setBytes(withSquare<LcdBitmap>(4, 128, 0)), Set{});
    EXPECT_EQ(setBytes(withSquare<LcdBitmap>(4, 0, 64)), Set{});
}

TEST(LcdHelperComposite, transLcdBitmapRow_hasItsLeftmostPixelInBit7)
{
    EXPECT_EQ(setBytes(withSquare<TransLcdBitmap>(1, 0, 0)), (Set{{0, 0x80}}));
    EXPECT_EQ(setBytes(withSquare<TransLcdBitmap>(1, 143, 0)), (Set{{17, 0x01}}));
    EXPECT_EQ(setBytes(withSquare<TransLcdBitmap>(1, 0, 1)), (Set{{18, 0x80}}));
    EXPECT_EQ(setBytes(withSquare<TransLcdBitmap>(1, 10, 2)), (Set{{2 * 18 + 1, 0x20}}));
    EXPECT_EQ(setBytes(withSquare<TransLcdBitmap>(1, 143, 167)), (Set{{3023, 0x01}}));
}

TEST(LcdHelperComposite, transLcdBitmapEdges_clip)
{
    EXPECT_EQ(setBytes(withSquare<TransLcdBitmap>(4, 142, 166)), (Set{{166 * 18 + 17, 0x03}, {167 * 18 + 17, 0x03}}));
    EXPECT_EQ(setBytes(withSquare<TransLcdBitmap>(4, 144, 0)), Set{});
    EXPECT_EQ(setBytes(withSquare<TransLcdBitmap>(4, 0, 168)), Set{});
}

// Ten columns and twelve rows: two pages of ten bytes, the second half used.
TEST(LcdHelperComposite, rawLcd_isPagesOfItsOwnWidth)
{
    Bytes lcd(20, 0);
    LcdHelper::compositeToLcd(lcd.data(), black.data(), 2, 2, 10, 12, 8, 10, mid);
    EXPECT_EQ(setBytes(lcd.data(), lcd.size()), (Set{{18, 0x0C}, {19, 0x0C}}));
}

TEST(LcdHelperComposite, rawLcdEdges_clip)
{
    Bytes lcd(20, 0);
    LcdHelper::compositeToLcd(lcd.data(), black.data(), 8, 8, 10, 12, 9, 11, mid);
    EXPECT_EQ(setBytes(lcd.data(), lcd.size()), (Set{{19, 0x08}}));
}

TEST(LcdHelperComposite, negativePositions_clipAtTheLeftAndTop)
{
    EXPECT_EQ(setBytes(withSquare<LcdBitmap>(4, -2, -3)), (Set{{0, 0x01}, {1, 0x01}}));
    EXPECT_EQ(setBytes(withSquare<TransLcdBitmap>(4, -2, -3)), (Set{{0, 0xC0}}));
    EXPECT_EQ(setBytes(withSquare<LcdBitmap>(4, -4, 0)), Set{});
    EXPECT_EQ(setBytes(withSquare<TransLcdBitmap>(4, 0, -4)), Set{});
    Bytes lcd(20, 0);
    LcdHelper::compositeToLcd(lcd.data(), black.data(), 4, 4, 10, 12, -3, -2, mid);
    EXPECT_EQ(setBytes(lcd.data(), lcd.size()), (Set{{0, 0x03}}));
}

TEST(LcdHelperComposite, farPositions_drawNothing)
{
    for (const int far : {INT_MIN, INT_MIN + 1, -1000, 1000, INT_MAX - 3, INT_MAX}) {
        for (const auto& [x, y] : {std::pair{far, 0}, {0, far}, {far, far}}) {
            EXPECT_EQ(setBytes(withSquare<LcdBitmap>(4, x, y)), Set{});
            EXPECT_EQ(setBytes(withSquare<TransLcdBitmap>(4, x, y)), Set{});
            Bytes lcd(20, 0);
            LcdHelper::compositeToLcd(lcd.data(), black.data(), 4, 4, 10, 12, x, y, mid);
            EXPECT_EQ(setBytes(lcd.data(), lcd.size()), Set{});
        }
    }
}

TEST(LcdHelperComposite, pixel_isSetBelowTheThresholdOnly)
{
    const Bytes greys = {0, 127, 128, 129, 255};
    TransLcdBitmap lcd{};
    LcdHelper::compositeToLcd(&lcd, greys.data(), 5, 1, 0, 0, 128);
    EXPECT_EQ(lcd.data[0], 0xC0);
    LcdHelper::compositeToLcd(&lcd, greys.data(), 5, 1, 0, 1, 0);
    EXPECT_EQ(lcd.data[18], 0x00);
    LcdHelper::compositeToLcd(&lcd, greys.data(), 5, 1, 0, 2, 256);
    EXPECT_EQ(lcd.data[36], 0xF8);
}

TEST(LcdHelperComposite, lightPixels_clearNothing)
{
    const Bytes white(64, 255);
    LcdBitmap pages = withSquare<LcdBitmap>(8, 0, 0);
    TransLcdBitmap rows = withSquare<TransLcdBitmap>(8, 0, 0);
    const Set pagesBefore = setBytes(pages);
    const Set rowsBefore = setBytes(rows);
    LcdHelper::compositeToLcd(&pages, white.data(), 8, 8, 0, 0, mid);
    LcdHelper::compositeToLcd(&rows, white.data(), 8, 8, 0, 0, mid);
    EXPECT_EQ(setBytes(pages), pagesBefore);
    EXPECT_EQ(setBytes(rows), rowsBefore);
}

TEST(LcdHelperComposite, laterPicture_isAddedToTheEarlierOne)
{
    TransLcdBitmap lcd = withSquare<TransLcdBitmap>(1, 0, 0);
    LcdHelper::compositeToLcd(&lcd, black.data(), 1, 1, 3, 0, mid);
    EXPECT_EQ(setBytes(lcd), (Set{{0, 0x90}}));
}

TEST(LcdHelperComposite, headersOfTheLcds_areUntouched)
{
    const Bytes picture(200 * 200, 0);
    LcdBitmap pages{{0xA1, 0xA2}, {}};
    TransLcdBitmap rows{{0xB1, 0xB2}, {}};
    LcdHelper::compositeToLcd(&pages, picture.data(), 200, 200, -10, -10, mid);
    LcdHelper::compositeToLcd(&rows, picture.data(), 200, 200, -10, -10, mid);
    EXPECT_EQ(Bytes(pages.header, pages.header + 2), (Bytes{0xA1, 0xA2}));
    EXPECT_EQ(Bytes(rows.header, rows.header + 2), (Bytes{0xB1, 0xB2}));
    EXPECT_TRUE(std::all_of(std::begin(pages.data), std::end(pages.data), [](int byte) { return byte == 0xFF; }));
    EXPECT_TRUE(std::all_of(std::begin(rows.data), std::end(rows.data), [](int byte) { return byte == 0xFF; }));
}

TEST(LcdHelperComposite, pictureWithoutPixels_drawsNothing)
{
    LcdBitmap pages{};
    TransLcdBitmap rows{};
    for (const auto& [width, height] : {std::pair{0U, UINT_MAX}, {UINT_MAX, 0U}, {0U, 0U}}) {
        LcdHelper::compositeToLcd(&pages, nullptr, width, height, 0, 0, mid);
        LcdHelper::compositeToLcd(&rows, nullptr, width, height, 0, 0, mid);
        LcdHelper::compositeToLcd(nullptr, nullptr, width, height, 8, 8, 0, 0, mid);
    }
    EXPECT_EQ(setBytes(pages), Set{});
    EXPECT_EQ(setBytes(rows), Set{});
}

// Of 2^32 - 1 rows at row 10, the one behind the highest position is at row 0 again: the
// last nine.
TEST(LcdHelperComposite, pictureAsHighAsPositionsGo_beginsAgainAtTheTop)
{
    if constexpr (sizeof(void*) == 8) {
        void* const memory =
            mmap(nullptr, UINT_MAX, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        ASSERT_NE(memory, MAP_FAILED);
        auto* const grey = static_cast<unsigned char*>(memory);
        std::memset(grey, 255, 54);
        LcdBitmap pages{};
        LcdHelper::compositeToLcd(&pages, grey, 1, UINT_MAX, 3, 10, mid);
        EXPECT_EQ(setBytes(pages), (Set{{3, 0xFF}, {128 + 3, 0x01}}));
        munmap(memory, UINT_MAX);
    }
}

TEST(LcdHelperComposite, lcdWithoutPixels_isLeftAlone)
{
    LcdHelper::compositeToLcd(nullptr, black.data(), 8, 8, 0, 8, 0, 0, mid);
    LcdHelper::compositeToLcd(nullptr, black.data(), 8, 8, 8, 0, 0, 0, mid);
}

namespace {

// A picture of some kind at some place, on all kinds of LCDs.
class RandomComposite {
public:
    explicit RandomComposite(Random& random)
        : m_width(random.below(170)), m_height(random.below(200)),
          m_grey(random.bytes(std::size_t{m_width} * m_height)), m_x(static_cast<int>(random.below(400)) - 200),
          m_y(static_cast<int>(random.below(440)) - 220), m_threshold(static_cast<int>(random.below(280)) - 10),
          m_lcdWidth(1 + random.below(150)), m_lcdHeight(1 + random.below(80)),
          m_before(static_cast<std::uint8_t>(random.below(256)))
    {}

    void expectLiteralResults() const
    {
        SCOPED_TRACE(testing::Message() << m_width << " × " << m_height << " at " << m_x << ", " << m_y
                                        << ", threshold " << m_threshold << ", LCD " << m_lcdWidth << " × "
                                        << m_lcdHeight << " of bytes " << int{m_before});
        expectLiteralPages();
        expectLiteralRows();
        expectLiteralRaw();
    }

private:
    LiteralComposite literal() const { return {m_grey, m_width, m_height, m_x, m_y, m_threshold}; }

    void expectLiteralPages() const
    {
        LcdBitmap pages{};
        std::memset(pages.data, m_before, sizeof pages.data);
        Bytes expected(sizeof pages.data, m_before);
        literal().drawPages(expected, 128, 64);
        LcdHelper::compositeToLcd(&pages, m_grey.data(), m_width, m_height, m_x, m_y, m_threshold);
        ASSERT_EQ(Bytes(std::begin(pages.data), std::end(pages.data)), expected);
    }

    void expectLiteralRows() const
    {
        TransLcdBitmap rows{};
        std::memset(rows.data, m_before, sizeof rows.data);
        Bytes expected(sizeof rows.data, m_before);
        literal().drawRows(expected, 144, 168);
        LcdHelper::compositeToLcd(&rows, m_grey.data(), m_width, m_height, m_x, m_y, m_threshold);
        ASSERT_EQ(Bytes(std::begin(rows.data), std::end(rows.data)), expected);
    }

    void expectLiteralRaw() const
    {
        Bytes raw(std::size_t{(m_lcdHeight + 7) / 8} * m_lcdWidth, m_before);
        Bytes expected = raw;
        literal().drawPages(expected, m_lcdWidth, m_lcdHeight);
        LcdHelper::compositeToLcd(raw.data(), m_grey.data(), m_width, m_height, m_lcdWidth, m_lcdHeight, m_x, m_y,
                                  m_threshold);
        ASSERT_EQ(raw, expected);
    }

    unsigned int m_width;
    unsigned int m_height;
    Bytes m_grey;
    int m_x;
    int m_y;
    int m_threshold;
    unsigned int m_lcdWidth;
    unsigned int m_lcdHeight;
    std::uint8_t m_before;
};

} // namespace

TEST(LcdHelperComposite, compositeAtRandomPositions_isTheLiteralOne)
{
    runSeeds(1, [](unsigned int seed) {
        Random random(seed);
        for (int round = 0; round < 300 && !HasFailure(); ++round) {
            const RandomComposite composite(random);
            onEachPath([&composite] { composite.expectLiteralResults(); });
        }
    });
}

} // namespace Vantor
