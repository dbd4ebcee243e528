#include "panel2mqtt/desk/PictureOrder.h"
#include "tests/support/PngSample.h"

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <sys/resource.h>
#include <zlib.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Properties = std::vector<std::pair<std::string, std::string>>;

constexpr std::uint16_t lcd = 3;
constexpr unsigned int anyLimit = 8192;

std::string textOf(const Bytes& bytes)
{
    return {bytes.begin(), bytes.end()};
}

Message messageOf(std::string payload, Properties properties)
{
    Message message;
    message.payload = std::move(payload);
    message.userProperties = std::move(properties);
    return message;
}

Properties geometryOf(const std::string& format, unsigned int width, unsigned int height, const Properties& more = {})
{
    Properties all{{"format", format}, {"width", std::to_string(width)}, {"height", std::to_string(height)}};
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

PictureOrder::Picture draw(const std::string& payload, const Properties& properties, unsigned int limit = anyLimit)
{
    const auto made = PictureOrder::makePicture(messageOf(payload, properties), lcd, limit);
    if (const auto* const answer = std::get_if<Answer>(&made)) {
        ADD_FAILURE() << answer->reason;
        return {{ClientLcdBitmap(0, 0, 0)}, false, 0};
    }
    return std::get<PictureOrder::Picture>(made);
}

// Of a picture that is one layer.
Bytes drawBytes(const Bytes& payload, const Properties& properties)
{
    const PictureOrder::Picture picture = draw(textOf(payload), properties);
    EXPECT_EQ(picture.layers.size(), 1u);
    return picture.layers.front().buffer;
}

Answer answerTo(const std::string& payload, const Properties& properties, unsigned int limit = anyLimit)
{
    const auto made = PictureOrder::makePicture(messageOf(payload, properties), lcd, limit);
    const auto* const answer = std::get_if<Answer>(&made);
    return answer != nullptr ? *answer : Answer{Answer::Word::Taken, "drawn"};
}

void expectRefused(const std::string& payload, const Properties& properties, const std::string& reason)
{
    const Answer answer = answerTo(payload, properties);
    EXPECT_EQ(answer.word, Answer::Word::Refused) << answer.reason;
    EXPECT_EQ(answer.reason, reason);
}

void expectTooLarge(const std::string& payload, const Properties& properties, const std::string& reason,
                    unsigned int limit = anyLimit)
{
    const Answer answer = answerTo(payload, properties, limit);
    EXPECT_EQ(answer.word, Answer::Word::TooLarge) << answer.reason;
    EXPECT_EQ(answer.reason, reason);
}

std::string bigEndian(std::size_t number)
{
    return textOf({static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
                   static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)});
}

std::string chunkOf(const std::string& name, const std::string& content)
{
    const std::string checked = name + content;
    const uLong crc = crc32(0, reinterpret_cast<const Bytef*>(checked.data()), static_cast<uInt>(checked.size()));
    return bigEndian(content.size()) + checked + bigEndian(crc);
}

std::string pack(const std::string& content)
{
    uLongf size = compressBound(content.size());
    std::string packed(size, '\0');
    EXPECT_EQ(compress2(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(content.data()),
                        content.size(), 9),
              Z_OK);
    packed.resize(size);
    return packed;
}

// Of 8 bits of grey.
std::string pngOf(std::size_t width, std::size_t height, const std::string& texts, const std::string& packedRows)
{
    return "\x89PNG\r\n\x1a\n" + chunkOf("IHDR", bigEndian(width) + bigEndian(height) + textOf({8, 0, 0, 0, 0})) +
           texts + chunkOf("IDAT", packedRows) + chunkOf("IEND", "");
}

std::string anyPng()
{
    return encodeGrey(8, 2, {0, 255, 0, 255, 0, 255, 0, 255, 0, 0, 0, 0, 255, 255, 255, 255});
}

// 255 pixels of which each is another than the one before.
std::string stripes()
{
    return std::string(31, '\x55') + '\x54';
}

long peakKilobytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST(PictureOrder, png_isBlackWhereItIsDark)
{
    const PictureOrder::Picture picture = draw(anyPng(), {});
    ASSERT_EQ(picture.layers.size(), 1u);
    const ClientLcdBitmap& layer = picture.layers.front();
    EXPECT_EQ(layer.lcd, lcd);
    EXPECT_EQ(layer.x, 0);
    EXPECT_EQ(layer.y, 0);
    EXPECT_EQ(layer.width, 8);
    EXPECT_EQ(layer.height, 2);
    EXPECT_EQ(layer.bitsPerPixel, 1);
    EXPECT_EQ(layer.encoded, 0);
    EXPECT_THAT(layer.buffer, ElementsAre(0xAA, 0xF0));
    EXPECT_FALSE(picture.isHeld);
    EXPECT_EQ(picture.bytes, sizeof(ClientLcdBitmap) + 2);
}

TEST(PictureOrder, bits_areSentAsTheyAre)
{
    const Bytes rows{0xF0, 0x01, 0x80, 0x7E};
    EXPECT_EQ(drawBytes(rows, geometryOf("bits", 16, 2)), rows);
    // Neither of the two changes what is black and white already.
    EXPECT_EQ(drawBytes(rows, geometryOf("bits", 16, 2, {{"threshold", "0"}, {"dither", "atkinson"}})), rows);
}

TEST(PictureOrder, bitsOfBrokenBytes_lastColumnsAreALayer)
{
    // The low nibbles of each row's second byte are no pixels.
    const PictureOrder::Picture picture =
        draw(textOf({0xAB, 0xCF, 0x12, 0x30}), geometryOf("bits", 12, 2, {{"x", "10"}, {"y", "20"}}));
    ASSERT_EQ(picture.layers.size(), 2u);
    EXPECT_EQ(picture.layers[0].x, 10);
    EXPECT_EQ(picture.layers[0].y, 20);
    EXPECT_EQ(picture.layers[0].width, 8);
    EXPECT_THAT(picture.layers[0].buffer, ElementsAre(0xAB, 0x12));
    EXPECT_EQ(picture.layers[1].x, 14);
    EXPECT_EQ(picture.layers[1].y, 20);
    EXPECT_EQ(picture.layers[1].width, 8);
    EXPECT_THAT(picture.layers[1].buffer, ElementsAre(0xBC, 0x23));
    EXPECT_EQ(picture.layers[1].lcd, lcd);
    EXPECT_EQ(picture.bytes, 2 * sizeof(ClientLcdBitmap) + 4);
}

TEST(PictureOrder, narrowBits_areRuns)
{
    const PictureOrder::Picture picture = draw("\xD0", geometryOf("bits", 4, 1));
    ASSERT_EQ(picture.layers.size(), 1u);
    EXPECT_EQ(picture.layers[0].encoded, 1);
    EXPECT_EQ(picture.layers[0].width, 4);
    EXPECT_THAT(picture.layers[0].buffer, ElementsAre(0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0, 1, 1, 0, 0, 0, 1, 0, 0, 1));
}

TEST(PictureOrder, greys_areComparedWithTheThreshold)
{
    const Bytes greys{0, 99, 100, 127, 128, 254, 255, 0};
    EXPECT_THAT(drawBytes(greys, geometryOf("gray8", 8, 1)), ElementsAre(0xF1));
    EXPECT_THAT(drawBytes(greys, geometryOf("gray8", 8, 1, {{"threshold", "100"}})), ElementsAre(0xC1));
    EXPECT_THAT(drawBytes(greys, geometryOf("gray8", 8, 1, {{"threshold", "255"}})), ElementsAre(0xFD));
    EXPECT_THAT(drawBytes(greys, geometryOf("gray8", 8, 1, {{"threshold", "0"}})), ElementsAre(0x00));
}

TEST(PictureOrder, dither_stuckiUnlessStated)
{
    // Of two rows of 100 the upper is black, and its errors whiten the second pixel of the
    // lower: 100 + 9 + 19 + 9 + 4 from above, 16 from the left.
    const Bytes greys(16, 100);
    EXPECT_EQ(drawBytes(greys, geometryOf("gray8", 8, 2)).at(1) & 0x40, 0);
    EXPECT_EQ(drawBytes(greys, geometryOf("gray8", 8, 2, {{"dither", "stucki"}})),
              drawBytes(greys, geometryOf("gray8", 8, 2)));
    EXPECT_THAT(drawBytes(greys, geometryOf("gray8", 8, 2, {{"dither", "threshold"}})), ElementsAre(0xFF, 0xFF));
}

TEST(PictureOrder, colours_areWeighed)
{
    const Properties one{{"form", "run-length"}, {"dither", "threshold"}};
    const auto isBlack = [&one](const std::string& format, const Bytes& pixel) {
        return drawBytes(pixel, geometryOf(format, 1, 1, one)).at(7) == 1;
    };
    // Green is 150 of 255, blue 29, red 76.
    EXPECT_FALSE(isBlack("rgb332", {0x1C}));
    EXPECT_TRUE(isBlack("rgb332", {0x03}));
    EXPECT_FALSE(isBlack("rgb565", {0xE0, 0x07}));
    EXPECT_TRUE(isBlack("rgb565", {0x00, 0xF8}));
    EXPECT_FALSE(isBlack("rgb888", {0, 255, 0}));
    EXPECT_TRUE(isBlack("rgb888", {0, 0, 255}));
    EXPECT_TRUE(isBlack("rgba8888", {0, 0, 0, 255}));
    EXPECT_FALSE(isBlack("rgba8888", {0, 0, 0, 0})); // on white
}

TEST(PictureOrder, invert_whiteForBlack)
{
    EXPECT_THAT(drawBytes({0xF0}, geometryOf("bits", 8, 1, {{"invert", "yes"}})), ElementsAre(0x0F));
    EXPECT_THAT(drawBytes({0xF0}, geometryOf("bits", 8, 1, {{"invert", "no"}})), ElementsAre(0xF0));
    expectRefused("\xF0", geometryOf("bits", 8, 1, {{"invert", "true"}}), "invert: expected yes or no");
}

TEST(PictureOrder, form_asIsAsked)
{
    const std::string blank(32, '\0');
    const auto isEncoded = [&blank](const std::string& form) {
        return draw(blank, geometryOf("bits", 128, 2, {{"form", form}})).layers.front().encoded != 0;
    };
    EXPECT_FALSE(isEncoded("raw"));
    EXPECT_TRUE(isEncoded("run-length"));
    EXPECT_TRUE(isEncoded("smaller")); // 16 bytes beside 32
    expectRefused(blank, geometryOf("bits", 128, 2, {{"form", "encoded"}}),
                  "form: expected raw, run-length or smaller");
}

TEST(PictureOrder, lock_holdsOrNot)
{
    EXPECT_TRUE(draw("\xF0", geometryOf("bits", 8, 1, {{"lock", "hold"}})).isHeld);
    EXPECT_FALSE(draw("\xF0", geometryOf("bits", 8, 1, {{"lock", "release"}})).isHeld);
    EXPECT_FALSE(draw("\xF0", geometryOf("bits", 8, 1)).isHeld);
    expectRefused("\xF0", geometryOf("bits", 8, 1, {{"lock", ""}}), "lock: expected hold or release");
}

TEST(PictureOrder, unknownProperties_areIgnored)
{
    EXPECT_THAT(drawBytes({0xF0}, geometryOf("bits", 8, 1, {{"id", "7"}, {"run", "x"}, {"", ""}})), ElementsAre(0xF0));
}

TEST(PictureOrder, geometryMissing_saysWhich)
{
    expectRefused("x", {}, "format: expected bits, gray8, rgb332, rgb565, rgb888 or rgba8888, or a PNG");
    expectRefused("x", {{"format", "rgb444"}}, "format: expected bits, gray8, rgb332, rgb565, rgb888 or rgba8888");
    expectRefused("x", {{"format", "bits"}, {"height", "1"}},
                  "width: expected a number from 1 to 255, with raw pixels");
    expectRefused("x", {{"format", "bits"}, {"width", "1"}},
                  "height: expected a number from 1 to 255, with raw pixels");
    expectRefused("", {}, "the payload is empty: expected a PNG or raw pixels");
}

TEST(PictureOrder, numbersThatAreNone_saysWhich)
{
    for (const std::string text : {"", "-1", "+1", " 1", "1 ", "0x10", "1.0", "one"}) {
        expectRefused("x", geometryOf("bits", 8, 1, {{"threshold", text}}),
                      "threshold: expected a number from 0 to 255");
        expectRefused("x", {{"format", "bits"}, {"width", text}, {"height", "1"}},
                      "width: expected a number from 1 to 255");
    }
    expectRefused("x", geometryOf("bits", 8, 1, {{"threshold", "256"}}), "threshold: expected a number from 0 to 255");
    expectRefused("x", geometryOf("bits", 8, 1, {{"x", "18446744073709551616"}}), "x: expected a number from 0 to 255");
    expectRefused("x", geometryOf("bits", 8, 1, {{"y", "256"}}), "y: expected a number from 0 to 255");
    expectRefused("x", geometryOf("bits", 8, 1, {{"dither", "Stucki"}}),
                  "dither: expected threshold, atkinson, floyd-steinberg or stucki");
}

TEST(PictureOrder, sides_upTo255)
{
    draw(std::string(32 * 255, '\0'), geometryOf("bits", 255, 255));
    expectTooLarge("x", geometryOf("bits", 256, 1), "width: expected a number from 1 to 255");
    expectTooLarge("x", geometryOf("bits", 1, 256), "height: expected a number from 1 to 255");
    expectRefused("x", geometryOf("bits", 0, 1), "width: expected a number from 1 to 255");
}

TEST(PictureOrder, payloadOfAnotherLength_isRefused)
{
    expectRefused("123", geometryOf("bits", 9, 2), "payload: expected 4 bytes by width, height and format, not 3");
    expectRefused("12345", geometryOf("bits", 9, 2), "payload: expected 4 bytes by width, height and format, not 5");
    expectRefused("1", geometryOf("gray8", 9, 2), "payload: expected 18 bytes by width, height and format, not 1");
    expectRefused("1", geometryOf("rgb332", 9, 2), "payload: expected 18 bytes by width, height and format, not 1");
    expectRefused("1", geometryOf("rgb565", 9, 2), "payload: expected 36 bytes by width, height and format, not 1");
    expectRefused("1", geometryOf("rgb888", 9, 2), "payload: expected 54 bytes by width, height and format, not 1");
    expectRefused("1", geometryOf("rgba8888", 9, 2), "payload: expected 72 bytes by width, height and format, not 1");
}

TEST(PictureOrder, lastRow_isRow255)
{
    EXPECT_EQ(draw("\xF0\x0F", geometryOf("bits", 8, 2, {{"y", "254"}})).layers.front().y, 254);
    expectRefused("\xF0\x0F", geometryOf("bits", 8, 2, {{"y", "255"}}),
                  "y: expected a number from 0 to 254, as 2 rows end above row 256");
}

// A marker and 255 runs take 1,024 bytes, beside 18 of the packet, the record and the slice.
TEST(PictureOrder, runLengthRowBeyondThePacket_isTooLarge)
{
    const Properties encoded = geometryOf("bits", 255, 1, {{"form", "run-length"}});
    EXPECT_EQ(draw(stripes(), encoded, 1042).layers.front().encodedSize, 1024u);
    expectTooLarge(stripes(), encoded,
                   "a row of it takes 1024 bytes as run-length words, more than fits into a packet of the panel, "
                   "of 1041 bytes",
                   1041);
    // The least limit that counts is 1025; the library takes 1100 in place of a lower one.
    EXPECT_EQ(answerTo(stripes(), encoded, 1025).word, Answer::Word::TooLarge);
    EXPECT_EQ(answerTo(stripes(), encoded, 1024).word, Answer::Word::Taken);
    EXPECT_EQ(answerTo(stripes(), encoded, 0).word, Answer::Word::Taken);
    EXPECT_EQ(answerTo(stripes(), encoded, 0x10000 + 1041).word, Answer::Word::Taken);
}

TEST(PictureOrder, rawThatCanNotBe_isTooLargeAsRuns)
{
    // Its last 8 columns would begin at column 256.
    EXPECT_EQ(answerTo(stripes(), geometryOf("bits", 255, 1, {{"x", "8"}}), 1041).word, Answer::Word::Taken);
    EXPECT_EQ(answerTo(stripes(), geometryOf("bits", 255, 1, {{"x", "9"}}), 1041).word, Answer::Word::TooLarge);
}

// With a row behind it, it takes a byte more.
TEST(PictureOrder, smallerThatDoesNotFit_isRaw)
{
    const std::string rows = stripes() + std::string(std::size_t{254} * 32, '\0');
    const Properties smaller = geometryOf("bits", 255, 255, {{"form", "smaller"}});
    EXPECT_EQ(draw(rows, smaller, 1043).layers.front().encoded, 1);
    EXPECT_EQ(draw(rows, smaller, 1042).layers.front().encoded, 0);
}

TEST(PictureOrder, payloadAbove4Mebibytes_isTooLarge)
{
    const std::string large(PictureOrder::maxPayload + 1, 'x');
    expectTooLarge(large, {}, "the payload has 4194305 bytes, at most 4194304 are read");
    EXPECT_EQ(answerTo(large.substr(1), {}).word, Answer::Word::Refused);
}

TEST(PictureOrder, pngOfMoreThan255_isTooLarge)
{
    EXPECT_EQ(draw(encodeGrey(255, 255, Bytes(255 * 255)), {}).layers.size(), 2u);
    expectTooLarge(encodeGrey(256, 1, Bytes(256)), {},
                   "the payload is too large: 256x1 pixels, at most 255 a side and 65025 in all are read");
    expectTooLarge(encodeGrey(1, 256, Bytes(256)), {},
                   "the payload is too large: 1x256 pixels, at most 255 a side and 65025 in all are read");
    const long before = peakKilobytes();
    // The most that there is; with 32 bits libpng calls that damaged.
    const std::uint32_t most = sizeof(void*) == 8 ? 0x7FFFFFFF : 500000000;
    expectTooLarge(pngOf(most, most, "", pack("")), {},
                   "the payload is too large: " + std::to_string(most) + "x" + std::to_string(most) +
                       " pixels, at most 255 a side and 65025 in all are read");
    EXPECT_LT(peakKilobytes() - before, 4096);
}

TEST(PictureOrder, damagedPng_isRefusedWithTheReason)
{
    const std::string whole = anyPng();
    for (std::size_t size = 8; size < whole.size(); ++size) {
        const Answer answer = answerTo(whole.substr(0, size), {});
        EXPECT_EQ(answer.word, Answer::Word::Refused) << size;
        EXPECT_THAT(answer.reason, HasSubstr("the payload is a damaged PNG file: ")) << size;
    }
    std::string wrongCheck = whole;
    wrongCheck[wrongCheck.find("IHDR") + 17] ^= 1;
    expectRefused(wrongCheck, {}, "the payload is a damaged PNG file: IHDR: CRC error");
    expectRefused(pngOf(0, 1, "", pack("")), {}, "the payload is a damaged PNG file: Invalid IHDR data");
    expectRefused(pngOf(4, 2, "", pack(std::string("\0\1\2\3\4", 5))), {},
                  "the payload is a damaged PNG file: Not enough image data");
}

TEST(PictureOrder, pngWithPackedTexts_takesNoMemoryForThem)
{
    // 16 texts of 4 MiB each, in 4 KiB.
    const std::string text = chunkOf("zTXt", std::string("a\0\0", 3) + pack(std::string(std::size_t{4} << 20, 'x')));
    std::string texts;
    for (int i = 0; i < 16; ++i)
        texts += text;
    const std::string file = pngOf(8, 1, texts, pack(std::string("\0\0\xFF\0\xFF\0\xFF\0\xFF", 9)));
    const long before = peakKilobytes();
    EXPECT_THAT(draw(file, {}).layers.front().buffer, ElementsAre(0xAA));
    EXPECT_LT(peakKilobytes() - before, 8192);
}

TEST(PictureOrder, pngWithABombBehindItsPixels_isRefused)
{
    const std::string row("\0\0\xFF\0\xFF\0\xFF\0\xFF", 9);
    // A few bytes too many are other programs' habit.
    EXPECT_EQ(draw(pngOf(8, 1, "", pack(row + std::string(1000, '\0'))), {}).layers.size(), 1u);
    expectRefused(pngOf(8, 1, "", pack(row + std::string(std::size_t{64} << 20, '\0'))), {},
                  "the payload is a damaged PNG file: much more data than its pixels have");
}

} // namespace
} // namespace Vantor
