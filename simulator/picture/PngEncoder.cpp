#include "simulator/picture/PngEncoder.h"

#include "simulator/picture/Zoom.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

#include <png.h>

namespace Vantor {

namespace {

bool isGrey(std::uint32_t pixel)
{
    return (pixel >> 16) == (pixel & 0xFF) && (pixel >> 8 & 0xFF) == (pixel & 0xFF);
}

void appendSamples(std::vector<std::uint8_t>& samples, std::uint32_t pixel, bool grey)
{
    if (!grey) {
        samples.push_back(static_cast<std::uint8_t>(pixel >> 16));
        samples.push_back(static_cast<std::uint8_t>(pixel >> 8));
    }
    samples.push_back(static_cast<std::uint8_t>(pixel));
}

std::vector<std::uint8_t> toSamples(const PanelScreen& screen, unsigned int zoom, bool grey)
{
    const std::size_t width = screen.getWidth();
    const std::vector<std::uint32_t>& pixels = screen.getPixels();
    std::vector<std::uint8_t> samples;
    samples.reserve(pixels.size() * zoom * zoom * (grey ? 1 : 3));
    std::vector<std::uint8_t> row;
    for (std::size_t begin = 0; begin < pixels.size(); begin += width) {
        row.clear();
        for (std::size_t i = begin; i < begin + width; ++i)
            for (unsigned int copy = 0; copy < zoom; ++copy)
                appendSamples(row, pixels[i], grey);
        for (unsigned int copy = 0; copy < zoom; ++copy)
            samples.insert(samples.end(), row.begin(), row.end());
    }
    return samples;
}

} // namespace

std::vector<std::uint8_t> PngEncoder::encode(const PanelScreen& screen, unsigned int zoom)
{
    Zoom::require(zoom);
    const std::vector<std::uint32_t>& pixels = screen.getPixels();
    const bool grey = std::all_of(pixels.begin(), pixels.end(), isGrey);
    const std::vector<std::uint8_t> samples = toSamples(screen, zoom, grey);

    // libpng's simplified interface: an error comes back as a text, not by longjmp.
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = screen.getWidth() * zoom;
    image.height = screen.getHeight() * zoom;
    image.format = grey ? PNG_FORMAT_GRAY : PNG_FORMAT_RGB;
    const auto write = [&image, &samples](std::vector<std::uint8_t>& file) {
        png_alloc_size_t size = file.size();
        const bool fits = png_image_write_to_memory(&image, file.data(), &size, 0, samples.data(), 0, nullptr) != 0;
        if (PNG_IMAGE_FAILED(image))
            throw std::runtime_error(image.message);
        file.resize(size);
        return fits;
    };
    // Nearly every picture fits; one that does not has told its size, and is packed again.
    std::vector<std::uint8_t> file(std::size_t{64} * 1024);
    if (!write(file))
        write(file);
    return file;
}

} // namespace Vantor
