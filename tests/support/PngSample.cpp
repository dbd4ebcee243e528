#include "tests/support/PngSample.h"

#include <gtest/gtest.h>
#include <png.h>

namespace Vantor {

namespace {

void keepBytes(png_structp png, png_bytep bytes, std::size_t size)
{
    static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<const char*>(bytes), size);
}

void writeColours(const PngSample& sample, png_structp png, png_infop info)
{
    std::vector<png_color> palette;
    for (const auto& colour : sample.palette)
        palette.push_back({colour[0], colour[1], colour[2]});
    if (!palette.empty())
        png_set_PLTE(png, info, palette.data(), static_cast<int>(palette.size()));
    if (!sample.paletteAlpha.empty())
        png_set_tRNS(png, info, sample.paletteAlpha.data(), static_cast<int>(sample.paletteAlpha.size()), nullptr);
    png_color_16 black{};
    if (sample.hasTransparentGrey)
        png_set_tRNS(png, info, nullptr, 0, &black);
    if (sample.gamma != 0)
        png_set_gAMA(png, info, sample.gamma);
}

} // namespace

// An error would abort the test program: that is all right here.
std::string PngSample::encode() const
{
    std::string file;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(png, &file, keepBytes, nullptr);
    png_set_IHDR(png, info, width, height, depth, type, interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    writeColours(*this, png, info);
    png_write_info(png, info);
    Bytes copy = rows;
    std::vector<png_bytep> starts;
    for (unsigned int y = 0; y < height; ++y)
        starts.push_back(copy.data() + y * png_get_rowbytes(png, info));
    EXPECT_EQ(copy.size(), height * png_get_rowbytes(png, info));
    png_write_image(png, starts.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return file;
}

std::string encodeGrey(unsigned int width, unsigned int height, const Bytes& pixels)
{
    return PngSample{width, height, PngSample::Grey, 8, pixels}.encode();
}

GreyFile GreyFile::read(const std::string& path)
{
    GreyFile file;
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0) {
        ADD_FAILURE() << path << ": " << image.message;
        return file;
    }
    EXPECT_EQ(image.format, static_cast<png_uint_32>(PNG_FORMAT_GRAY)) << path;
    image.format = PNG_FORMAT_GRAY;
    file.width = image.width;
    file.height = image.height;
    file.pixels.resize(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, file.pixels.data(), 0, nullptr) == 0)
        ADD_FAILURE() << path << ": " << image.message;
    return file;
}

} // namespace Vantor
