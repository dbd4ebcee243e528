#include "tests/support/PngSample.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

namespace Vantor {

namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

using Pixels = Bytes;

struct Picture {
    unsigned int width;
    unsigned int height;
    Pixels pixels;
};

// The ditherings as they are described, written down once more.
class Dithering {
public:
    Dithering(const Picture& picture, int threshold)
        : m_width(static_cast<int>(picture.width)), m_height(static_cast<int>(picture.height)), m_threshold(threshold),
          m_values(picture.pixels.begin(), picture.pixels.end())
    {}

    Pixels run(const std::string& type)
    {
        for (int y = 0; y < m_height; ++y)
            for (int x = 0; x < m_width; ++x) {
                int& value = m_values[static_cast<std::size_t>(y * m_width + x)];
                const int old = value;
                value = old < m_threshold ? 0 : 255;
                spread(type, x, y, old - value);
            }
        return Pixels(m_values.begin(), m_values.end());
    }

private:
    void add(int x, int y, int share)
    {
        if (x <= 0 || y <= 0 || x >= m_width || y >= m_height)
            return;
        int& value = m_values[static_cast<std::size_t>(y * m_width + x)];
        value = value + share < 0 ? 0 : (value + share) % 256;
    }

    void spread(const std::string& type, int x, int y, int e)
    {
        if (type == "floyd-steinberg") {
            add(x + 1, y, e * 7 / 16);
            add(x - 1, y + 1, e * 3 / 16);
            add(x, y + 1, e * 5 / 16);
            add(x + 1, y + 1, e / 16);
        } else if (type == "atkinson") {
            for (const auto& [dx, dy] : {std::pair(1, 0), {2, 0}, {-1, 1}, {0, 1}, {1, 1}, {0, 2}})
                add(x + dx, y + dy, e / 8);
        } else if (type == "stucki") {
            add(x + 1, y, e / 6);
            add(x + 2, y, e * 5 / 42);
            for (const int row : {1, 2}) {
                add(x - 2, y + row, row == 1 ? e / 21 : e / 42);
                add(x - 1, y + row, row == 1 ? e * 4 / 42 : e / 21);
                add(x, y + row, row == 1 ? e * 8 / 42 : e * 4 / 42);
                add(x + 1, y + row, row == 1 ? e * 4 / 42 : e / 21);
                add(x + 2, y + row, row == 1 ? e / 21 : e / 42);
            }
        }
    }

    int m_width;
    int m_height;
    int m_threshold;
    std::vector<int> m_values;
};

// A gradient with noise on it, of every shade.
Picture makePicture(unsigned int width, unsigned int height)
{
    Picture picture{width, height, {}};
    std::uint32_t state = 99;
    for (unsigned int y = 0; y < height; ++y)
        for (unsigned int x = 0; x < width; ++x) {
            state = state * 1664525 + 1013904223;
            const unsigned int shade = 255 * (x + y) / (width + height) + (state >> 26);
            picture.pixels.push_back(static_cast<std::uint8_t>(shade > 255 ? 510 - shade : shade));
        }
    return picture;
}

// Every pixel becomes as many as the other picture has, which are counted one by one.
Picture scaled(const Picture& picture, unsigned int width, unsigned int height)
{
    Picture result{width, height, {}};
    for (unsigned int y = 0; y < height; ++y)
        for (unsigned int x = 0; x < width; ++x) {
            std::uint64_t sum = 0;
            for (unsigned int v = y * picture.height; v < (y + 1) * picture.height; ++v)
                for (unsigned int u = x * picture.width; u < (x + 1) * picture.width; ++u)
                    sum += picture.pixels[v / height * picture.width + u / width];
            const std::uint64_t area = std::uint64_t{picture.width} * picture.height;
            result.pixels.push_back(static_cast<std::uint8_t>((2 * sum + area) / (2 * area)));
        }
    return result;
}

// A white LCD with dark pixels where the picture has them.
Pixels shownOn(unsigned int lcdWidth, unsigned int lcdHeight, const Picture& picture, unsigned int left,
               unsigned int top)
{
    Pixels lcd(std::size_t{lcdWidth} * lcdHeight, 255);
    for (unsigned int y = 0; y < picture.height && top + y < lcdHeight; ++y)
        for (unsigned int x = 0; x < picture.width && left + x < lcdWidth; ++x)
            lcd[(top + y) * lcdWidth + left + x] = picture.pixels[y * picture.width + x];
    return lcd;
}

struct Drawn {
    ToolResult result;
    GreyFile lcd;
};

// Draws a PNG file on LCD 0 and looks at it.
Drawn draw(const std::string& png, ToolRun::Arguments arguments, ToolRun::Arguments bus = {})
{
    const TemporaryFile file(png);
    const TemporaryFolder folder;
    bus.insert(bus.end(), {"--png", folder.getPath()});
    arguments.insert(arguments.begin(), {"draw", file.getPath(), "--lcd", "0"});
    const ToolResult result = runTool(panelctlOn(bus, arguments));
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    return {result, GreyFile::read(folder.getPath() + "/panel0-lcd0.png")};
}

Drawn draw(const Picture& picture, const ToolRun::Arguments& arguments, const ToolRun::Arguments& bus = {})
{
    return draw(encodeGrey(picture.width, picture.height, picture.pixels), arguments, bus);
}

Picture dithered(const Picture& picture, const std::string& type, int threshold = 128)
{
    return {picture.width, picture.height, Dithering(picture, threshold).run(type)};
}

// The panel answers late, so that a fault can meet the picture.
ToolRun::Arguments withFault(const std::string& fault)
{
    return {"--at", "0s", "fault in delay=1000", "--at", "500ms", fault};
}

const TemporaryFile& wholeScreen()
{
    static const TemporaryFile file(encodeGrey(144, 168, makePicture(144, 168).pixels));
    return file;
}

} // namespace

class PanelctlDrawDithering : public ::testing::TestWithParam<const char*> {};

TEST_P(PanelctlDrawDithering, exactSize_isShownPixelByPixel)
{
    const std::string type = GetParam();
    const Picture picture = makePicture(144, 168);
    const Pixels expected = dithered(picture, type).pixels;
    const Drawn raw = draw(picture, {"--dither", type});
    EXPECT_EQ(raw.lcd.pixels, expected);
    EXPECT_THAT(raw.result.output,
                ContainsRegex("^panel 0101 \\(1-1\\) has taken 168 rows of 144 pixels for LCD 0, raw: 3042 bytes in "
                              "1 packet, in [0-9]+\\.[0-9] ms\n$"));
    EXPECT_EQ(draw(picture, {"--dither", type, "--encoded"}).lcd.pixels, expected);
}

INSTANTIATE_TEST_SUITE_P(PanelctlDraw, PanelctlDrawDithering,
                         ::testing::Values("threshold", "atkinson", "floyd-steinberg", "stucki"), [](const auto& test) {
                             std::string name = test.param;
                             return name.substr(0, name.find('-'));
                         });

TEST(PanelctlDraw, nothingSaid_isStuckiAt128)
{
    const Picture picture = makePicture(144, 168);
    EXPECT_EQ(draw(picture, {}).lcd.pixels, dithered(picture, "stucki").pixels);
}

TEST(PanelctlDraw, threshold_isTheOneGiven)
{
    const Picture picture = makePicture(144, 168);
    EXPECT_EQ(draw(picture, {"--threshold", "60", "--dither", "threshold"}).lcd.pixels,
              dithered(picture, "threshold", 60).pixels);
    EXPECT_EQ(draw(picture, {"--threshold", "200", "--dither", "atkinson"}).lcd.pixels,
              dithered(picture, "atkinson", 200).pixels);
}

TEST(PanelctlDraw, invert_comesBeforeDithering)
{
    Picture picture = makePicture(144, 168);
    const Drawn drawn = draw(picture, {"--invert"});
    for (std::uint8_t& pixel : picture.pixels)
        pixel = static_cast<std::uint8_t>(255 - pixel);
    EXPECT_EQ(drawn.lcd.pixels, dithered(picture, "stucki").pixels);
}

// 90 × 40 becomes 63 × 28, centred in 63 × 47: 9 rows above, 10 below. They are no part of
// what is dithered: errors would turn white to black there.
TEST(PanelctlDraw, otherSize_isScaledWithItsAspectBetweenWhiteMargins)
{
    const Picture picture = makePicture(90, 40);
    const Picture inner = dithered(scaled(picture, 63, 28), "floyd-steinberg");
    const Drawn drawn = draw(picture, {"--size", "63x47", "--at", "50,100", "--dither", "floyd-steinberg"});
    EXPECT_EQ(drawn.lcd.pixels, shownOn(144, 168, inner, 50, 109));
}

TEST(PanelctlDraw, invertedPicture_hasBlackMargins)
{
    Picture picture = makePicture(90, 40);
    const Drawn drawn = draw(picture, {"--size", "90x42", "--invert"});
    for (std::uint8_t& pixel : picture.pixels)
        pixel = static_cast<std::uint8_t>(255 - pixel);
    Picture whole{90, 42, Pixels(90, 0)};
    const Pixels inner = dithered(picture, "stucki").pixels;
    whole.pixels.insert(whole.pixels.end(), inner.begin(), inner.end());
    whole.pixels.insert(whole.pixels.end(), 90, 0);
    EXPECT_EQ(drawn.lcd.pixels, shownOn(144, 168, whole, 0, 0));
}

TEST(PanelctlDraw, smallPicture_isEnlarged)
{
    // 5 × 7 becomes 120 × 168, 12 columns to the left.
    const Picture picture = makePicture(5, 7);
    EXPECT_EQ(draw(picture, {}).lcd.pixels, shownOn(144, 168, dithered(scaled(picture, 120, 168), "stucki"), 12, 0));
}

TEST(PanelctlDraw, colours_becomeGrey)
{
    // 76, 150, 29 and, half transparent, 255 - 128 + 38 = 165 at most: grey of (255, 127, 127) is 165.
    PngSample sample{4, 1, PngSample::Rgba, 8, {255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 255, 255, 0, 0, 128}};
    const Picture grey{4, 1, {76, 150, 29, 165}};
    for (const int threshold : {76, 77, 150, 151, 165, 166})
        EXPECT_EQ(draw(sample.encode(), {"--size", "4x1", "--encoded", "--dither", "threshold", "--threshold",
                                         std::to_string(threshold)})
                      .lcd.pixels,
                  shownOn(144, 168, dithered(grey, "threshold", threshold), 0, 0))
            << threshold;
}

class PanelctlDrawWidth : public ::testing::TestWithParam<unsigned int> {};

// In many slices: the packets are as small as they get.
TEST_P(PanelctlDrawWidth, everyWidth_isShownWhole)
{
    const unsigned int width = GetParam();
    const std::string size = std::to_string(width) + "x255";
    const Picture picture = makePicture(width, 255);
    const ToolRun::Arguments bus{"--max-packet", "1025", "--lcd", "0=300x260"};
    const Pixels expected = shownOn(300, 260, dithered(picture, "threshold"), 3, 1);
    EXPECT_EQ(draw(picture, {"--dither", "threshold", "--size", size, "--at", "3,1"}, bus).lcd.pixels, expected);
}

INSTANTIATE_TEST_SUITE_P(PanelctlDraw, PanelctlDrawWidth, ::testing::Values(1, 7, 8, 9, 15, 17, 143, 255),
                         [](const auto& test) { return std::to_string(test.param); });

TEST(PanelctlDraw, form_isSaid)
{
    const Picture picture = makePicture(9, 9);
    EXPECT_THAT(draw(picture, {"--size", "9x9"}).result.output, HasSubstr("9 rows of 9 pixels for LCD 0, raw: "));
    EXPECT_THAT(draw(picture, {"--size", "7x9"}).result.output,
                HasSubstr("9 rows of 7 pixels for LCD 0, as run-length words: "));
    EXPECT_THAT(draw(picture, {"--size", "9x9", "--encoded"}).result.output,
                HasSubstr("9 rows of 9 pixels for LCD 0, as run-length words: "));
}

TEST(PanelctlDraw, pictureBeyondTheLcd_isClippedThere)
{
    const Picture picture = makePicture(100, 56);
    const Drawn drawn =
        draw(picture, {"--size", "100x56", "--at", "255,200", "--dither", "threshold"}, {"--lcd", "0=300x220"});
    EXPECT_EQ(drawn.lcd.pixels, shownOn(300, 220, dithered(picture, "threshold"), 255, 200));
}

TEST(PanelctlDraw, chosenPanelAndLcd_areDrawnOn)
{
    const TemporaryFolder folder;
    const ToolResult result =
        runTool(panelctlOn({"--panels", "2", "--png", folder.getPath()},
                           {"draw", wholeScreen().getPath(), "--lcd", "65535", "--panel", "0102"}));
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.output, StartsWith("panel 0102 (1-2) has taken 168 rows of 144 pixels for LCD 65535, raw: "));
    EXPECT_TRUE(std::filesystem::exists(folder.getPath() + "/panel1-lcd65535.png"));
    EXPECT_FALSE(std::filesystem::exists(folder.getPath() + "/panel0-lcd65535.png"));
}

TEST(PanelctlDraw, rowThatNeverFits_isRefusedAndNotSent)
{
    Picture picture{255, 2, {}};
    for (unsigned int i = 0; i < 255 * 2; ++i)
        picture.pixels.push_back(i % 2 == 0 ? 0 : 255);
    const TemporaryFile file(encodeGrey(255, 2, picture.pixels));
    const TemporaryFile log;
    const ToolResult result =
        runTool(panelctlOn({"--max-packet", "1025", "--log", log.getPath()},
                           {"draw", file.getPath(), "--lcd", "0", "--size", "255x2", "--encoded"}));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors,
              "panelctl: the picture can't be sent to panel 0101 (1-1) as run-length words: a row of it takes 1024 "
              "bytes, more than a slice holds under its packet limit of 1025 bytes; it takes a limit of 1043.\n"
              "  It would never leave and would hold back everything behind it, so it was not queued. Send it without "
              "--encoded.\n");
    EXPECT_THAT(log.read(), Not(HasSubstr("record type 46")));

    EXPECT_EQ(runTool(panelctlOn({"--max-packet", "1043"},
                                 {"draw", file.getPath(), "--lcd", "0", "--size", "255x2", "--encoded"}))
                  .exitCode,
              0);
}

TEST(PanelctlDraw, noPanel_saysSo)
{
    const ToolResult result = runTool(panelctlOn({"--panels", "0"}, {"draw", wholeScreen().getPath(), "--lcd", "0"}));
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.errors, StartsWith("panelctl: no panel found"));
}

TEST(PanelctlDraw, severalPanelsAndNoneChosen_areListed)
{
    const ToolResult result = runTool(panelctlOn({"--panels", "2"}, {"draw", wholeScreen().getPath(), "--lcd", "0"}));
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.errors, HasSubstr("Say which one with --panel."));
}

TEST(PanelctlDraw, panelThatStopsTaking_timesOut)
{
    const ToolResult result = runTool(panelctlOn(withFault("fault out silent sticky"),
                                                 {"draw", wholeScreen().getPath(), "--lcd", "0", "--timeout", "1.5"}));
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, StartsWith("panelctl: panel 0101 (1-1) has not taken the picture within 1.5 s: 0 of "
                                          "3042 bytes on endpoint 0x02.\n"));
    EXPECT_THAT(result.errors, HasSubstr("\n  The picture was still queued and goes no further"));
}

TEST(PanelctlDraw, packetTakenInPart_fails)
{
    const ToolResult result =
        runTool(panelctlOn(withFault("fault out short=100 once"), {"draw", wholeScreen().getPath(), "--lcd", "0"}));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, StartsWith("panelctl: panel 0101 (1-1) has taken a packet of the picture in part only, "
                                          "so that rows of it are missing.\n"));
}

TEST(PanelctlDraw, unpluggedMeanwhile_saysSo)
{
    ToolRun::Arguments bus = withFault("fault out silent sticky");
    bus.insert(bus.end(), {"--at", "4s", "unplug"});
    const ToolResult result =
        runTool(panelctlOn(bus, {"draw", wholeScreen().getPath(), "--lcd", "0", "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors,
                StartsWith("panelctl: panel 0101 (1-1) went away: it was unplugged.\n"
                           "  The picture was on its way: how much of it the panel shows is not known.\n"));
}

TEST(PanelctlDraw, interrupted_endsInOrder)
{
    const TemporaryFile log;
    std::vector<std::string> bus = withFault("fault out silent sticky");
    bus.insert(bus.end(), {"--log", log.getPath()});
    ToolRun run(panelctlOn(bus, {"draw", wholeScreen().getPath(), "--lcd", "0"}));
    run.awaitFile(log.getPath(), "claim");
    run.let(std::chrono::milliseconds(1600)); // the panel answers after one second
    run.sendSignal(SIGINT);
    EXPECT_EQ(run.finish(), 130);
    EXPECT_EQ(run.getOutput(), "");
    EXPECT_THAT(run.getErrors(), HasSubstr("panelctl: interrupted\n"));
}

} // namespace Vantor
