#include "simulator/PngWriter.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include <png.h>

namespace Vantor {

namespace {

bool isGrey(std::uint32_t pixel)
{
    return (pixel >> 16) == (pixel & 0xFF) && (pixel >> 8 & 0xFF) == (pixel & 0xFF);
}

std::vector<std::uint8_t> toSamples(const std::vector<std::uint32_t>& pixels, bool grey)
{
    std::vector<std::uint8_t> samples;
    samples.reserve(pixels.size() * (grey ? 1 : 3));
    for (const std::uint32_t pixel : pixels) {
        if (!grey) {
            samples.push_back(static_cast<std::uint8_t>(pixel >> 16));
            samples.push_back(static_cast<std::uint8_t>(pixel >> 8));
        }
        samples.push_back(static_cast<std::uint8_t>(pixel));
    }
    return samples;
}

} // namespace

void PngWriter::write(const std::string& path, const PanelScreen& screen)
{
    const std::vector<std::uint32_t>& pixels = screen.getPixels();
    const bool grey = std::all_of(pixels.begin(), pixels.end(), isGrey);
    const std::vector<std::uint8_t> samples = toSamples(pixels, grey);

    // libpng's simplified interface: an error comes back as a text, not by longjmp.
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = screen.getWidth();
    image.height = screen.getHeight();
    image.format = grey ? PNG_FORMAT_GRAY : PNG_FORMAT_RGB;
    if (png_image_write_to_file(&image, path.c_str(), 0, samples.data(), 0, nullptr) == 0)
        throw std::runtime_error(path + ": " + image.message);
}

} // namespace Vantor
