#include "simulator/panelsim/PngWriter.h"

#include "simulator/bus/UserText.h"
#include "simulator/panelsim/OutputFile.h"

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
    png_alloc_size_t size = 0;
    std::vector<std::uint8_t> file;
    if (png_image_write_to_memory(&image, nullptr, &size, 0, samples.data(), 0, nullptr) != 0) {
        file.resize(size);
        png_image_write_to_memory(&image, file.data(), &size, 0, samples.data(), 0, nullptr);
    }
    if (PNG_IMAGE_FAILED(image))
        throw std::runtime_error(UserText::shown(path) + ": " + image.message);
    file.resize(size);
    try {
        OutputFile::replace(path, file);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(UserText::shown(path) + ": " + error.what());
    }
}

} // namespace Vantor
