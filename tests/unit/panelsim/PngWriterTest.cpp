#include "simulator/panelsim/PngWriter.h"
#include "tests/support/Bytes.h"
#include "tests/support/TemporaryFolder.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include <png.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

class PngWriterTest : public testing::Test {
protected:
    // The signature and the image header behind its length and name: width, height,
    // bit depth, colour type (0 grey, 2 RGB), and three zeros.
    void expectHeader(std::uint8_t width, std::uint8_t height, std::uint8_t colourType)
    {
        Bytes bytes = contentOf<Bytes>(m_path);
        ASSERT_GE(bytes.size(), 29u);
        bytes.resize(29);
        EXPECT_THAT(bytes,
                    ElementsAreArray(
                        {0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A,       0x0A, 0, 0, 0,           13, 0x49,
                         0x48, 0x44, 0x52, 0,    0,    0,    int{width}, 0,    0, 0, int{height}, 8,  int{colourType},
                         0,    0,    0}));
    }

    static void expectFailure(const std::string& path, const std::string& cause)
    {
        try {
            PngWriter::write(path, PanelScreen({1, 1}));
            ADD_FAILURE() << path << " did not throw";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(std::string(error.what()), path + ": " + cause);
        }
    }

    // Red, green and blue of every pixel.
    Bytes readRgb() const
    {
        png_image image{};
        image.version = PNG_IMAGE_VERSION;
        EXPECT_NE(png_image_begin_read_from_file(&image, m_path.c_str()), 0) << image.message;
        image.format = PNG_FORMAT_RGB;
        Bytes samples(PNG_IMAGE_SIZE(image));
        EXPECT_NE(png_image_finish_read(&image, nullptr, samples.data(), 0, nullptr), 0) << image.message;
        return samples;
    }

    const TemporaryFolder m_folder;
    const std::string m_path = m_folder / "a.png";
};

TEST_F(PngWriterTest, greyPixels_8BitGrey)
{
    PanelScreen screen({3, 2});
    screen.draw(0, 0, 3, {0x000000, 0xFFFFFF, 0x808080, 0x010101, 0xFEFEFE, 0x7F7F7F});
    PngWriter::write(m_path, screen);
    expectHeader(3, 2, 0);
    EXPECT_THAT(readRgb(), ElementsAre(0, 0, 0, 255, 255, 255, 128, 128, 128, 1, 1, 1, 254, 254, 254, 127, 127, 127));
}

TEST_F(PngWriterTest, onePixelOfColour_8BitRgb)
{
    for (const std::uint32_t colour : {0x000001U, 0x000100U, 0x010000U}) {
        PanelScreen screen({2, 1});
        screen.draw(1, 0, 1, {colour});
        PngWriter::write(m_path, screen);
        expectHeader(2, 1, 2);
        EXPECT_THAT(readRgb(), ElementsAre(255, 255, 255, colour >> 16, colour >> 8 & 255, colour & 255));
    }
}

TEST_F(PngWriterTest, fileOfThatName_replaced)
{
    PngWriter::write(m_path, PanelScreen({200, 200}));
    PngWriter::write(m_path, PanelScreen({1, 1}));
    expectHeader(1, 1, 0);
    EXPECT_THAT(readRgb(), ElementsAre(255, 255, 255));
}

TEST_F(PngWriterTest, fileThatCannotBeOpened_throwsWithPathAndCause)
{
    expectFailure(m_folder / "none/a.png", "No such file or directory");
    expectFailure(m_folder.getPath(), "Is a directory");
}

TEST_F(PngWriterTest, symbolicLink_isRefused)
{
    std::ofstream(m_folder / "victim") << "precious";
    std::filesystem::create_symlink("victim", m_path);
    expectFailure(m_path, "it is a symbolic link");
    std::ifstream victim(m_folder / "victim");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(victim), {}), "precious");
}

} // namespace
} // namespace Vantor
