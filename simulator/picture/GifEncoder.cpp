#include "simulator/picture/GifEncoder.h"

#include "simulator/picture/GifPalette.h"
#include "simulator/picture/Zoom.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include <gif_lib.h>

namespace Vantor {

namespace {

using Hundredths = std::chrono::duration<std::int64_t, std::centi>;

constexpr Hundredths minStay = std::chrono::duration_cast<Hundredths>(GifEncoder::minDelay);
constexpr Hundredths maxStay = std::chrono::duration_cast<Hundredths>(GifEncoder::maxDelay);

struct Moment {
    std::vector<std::uint8_t> indices; // into the palette, as long as the screen has pixels
    Hundredths begin;
};

struct Rectangle {
    std::size_t x;
    std::size_t y;
    std::size_t width;
    std::size_t height;
};

void requireFrames(const std::vector<GifEncoder::Frame>& frames)
{
    if (frames.empty())
        throw std::invalid_argument("an animation needs a picture");
    const PanelScreen& first = frames.front().screen;
    for (const auto& [screen, shown] : frames) {
        if (screen.getWidth() != first.getWidth() || screen.getHeight() != first.getHeight())
            throw std::invalid_argument("an animation's pictures are of one size");
        if (shown.count() < 0 || shown > GifEncoder::maxDelay)
            throw std::invalid_argument("a picture is shown for 0 to 655.35 s");
    }
}

// What is to be stored, and when the last one ends.
std::vector<Moment> toMoments(const std::vector<GifEncoder::Frame>& frames, const GifPalette& palette, Hundredths& end)
{
    std::vector<Moment> moments;
    std::chrono::microseconds elapsed{0};
    for (const auto& [screen, shown] : frames) {
        const auto begin = std::chrono::round<Hundredths>(elapsed);
        elapsed += shown;
        std::vector<std::uint8_t> indices = palette.getIndices(screen);
        if (!moments.empty() && moments.back().indices == indices)
            continue;
        if (moments.empty() || begin - moments.back().begin >= minStay) {
            moments.push_back({std::move(indices), begin});
            continue;
        }
        moments.back().indices = std::move(indices);
        if (moments.size() > 1 && moments.back().indices == moments[moments.size() - 2].indices)
            moments.pop_back();
    }
    end = std::max(std::chrono::round<Hundredths>(elapsed), moments.back().begin + minStay);
    return moments;
}

// Of two that differ.
Rectangle toChanged(const std::vector<std::uint8_t>& from, const std::vector<std::uint8_t>& to, std::size_t width)
{
    std::size_t left = width;
    std::size_t right = 0;
    std::size_t top = to.size() / width;
    std::size_t bottom = 0;
    for (std::size_t i = 0; i < to.size(); ++i) {
        if (from[i] == to[i])
            continue;
        left = std::min(left, i % width);
        right = std::max(right, i % width + 1);
        top = std::min(top, i / width);
        bottom = i / width + 1;
    }
    return {left, top, right - left, bottom - top};
}

// A GIF in the making, in memory.
class GifStream {
public:
    GifStream(std::size_t width, std::size_t height, unsigned int zoom, const std::vector<std::uint32_t>& colours,
              bool moves)
        : m_width(width), m_zoom(zoom)
    {
        int error = 0;
        m_file.reset(EGifOpen(this, write, &error));
        if (!m_file)
            fail(error);
        EGifSetGifVersion(m_file.get(), moves);
        const auto map = toMap(colours);
        require(EGifPutScreenDesc(m_file.get(), scaled(width), scaled(height), map->BitsPerPixel, 0, map.get()));
        if (moves)
            putLoop();
    }

    void putDelay(Hundredths delay)
    {
        const GraphicsControlBlock control{DISPOSE_DO_NOT, false, static_cast<int>(std::min(delay, maxStay).count()),
                                           NO_TRANSPARENT_COLOR};
        std::array<GifByteType, 4> bytes{};
        EGifGCBToExtension(&control, bytes.data());
        require(EGifPutExtension(m_file.get(), GRAPHICS_EXT_FUNC_CODE, int{bytes.size()}, bytes.data()));
    }

    void putPart(const std::vector<std::uint8_t>& indices, const Rectangle& part)
    {
        require(EGifPutImageDesc(m_file.get(), scaled(part.x), scaled(part.y), scaled(part.width), scaled(part.height),
                                 false, nullptr));
        std::vector<GifPixelType> row(part.width * m_zoom);
        for (std::size_t y = part.y; y < part.y + part.height; ++y) {
            for (std::size_t i = 0; i < row.size(); ++i)
                row[i] = indices[y * m_width + part.x + i / m_zoom];
            for (unsigned int copy = 0; copy < m_zoom; ++copy)
                require(EGifPutLine(m_file.get(), row.data(), scaled(part.width)));
        }
    }

    std::vector<std::uint8_t> finish()
    {
        int error = 0;
        if (EGifCloseFile(m_file.release(), &error) != GIF_OK)
            fail(error);
        if (m_isFull)
            throw std::bad_alloc();
        return std::move(m_bytes);
    }

private:
    struct Close {
        void operator()(GifFileType* file) const { EGifCloseFile(file, nullptr); }
    };
    struct FreeMap {
        void operator()(ColorMapObject* map) const { GifFreeMapObject(map); }
    };

    // No exception goes through giflib.
    static int write(GifFileType* file, const GifByteType* bytes, int size) noexcept
    {
        auto& stream = *static_cast<GifStream*>(file->UserData);
        try {
            stream.m_bytes.insert(stream.m_bytes.end(), bytes, bytes + size);
            return size;
        } catch (const std::bad_alloc&) {
            stream.m_isFull = true;
            return 0;
        }
    }

    [[noreturn]] static void fail(int error)
    {
        const char* const text = GifErrorString(error);
        throw std::runtime_error(text != nullptr ? text : "giflib: error " + std::to_string(error));
    }

    void require(int result) const
    {
        if (result != GIF_OK)
            fail(m_file->Error);
    }

    // Padded to a power of 2, as the format wants it.
    static std::unique_ptr<ColorMapObject, FreeMap> toMap(const std::vector<std::uint32_t>& colours)
    {
        std::vector<GifColorType> entries;
        entries.reserve(colours.size());
        for (const std::uint32_t colour : colours)
            entries.push_back({static_cast<GifByteType>(colour >> 16), static_cast<GifByteType>(colour >> 8),
                               static_cast<GifByteType>(colour)});
        entries.resize(std::size_t{1} << std::max(GifBitSize(static_cast<int>(colours.size())), 1));
        std::unique_ptr<ColorMapObject, FreeMap> map(
            GifMakeMapObject(static_cast<int>(entries.size()), entries.data()));
        if (!map)
            throw std::bad_alloc();
        return map;
    }

    void putLoop()
    {
        constexpr std::array<GifByteType, 3> forever{1, 0, 0};
        require(EGifPutExtensionLeader(m_file.get(), APPLICATION_EXT_FUNC_CODE));
        require(EGifPutExtensionBlock(m_file.get(), 11, "NETSCAPE2.0"));
        require(EGifPutExtensionBlock(m_file.get(), int{forever.size()}, forever.data()));
        require(EGifPutExtensionTrailer(m_file.get()));
    }

    int scaled(std::size_t length) const { return static_cast<int>(length * m_zoom); }

    std::size_t m_width;
    unsigned int m_zoom;
    std::vector<std::uint8_t> m_bytes;
    bool m_isFull = false;
    std::unique_ptr<GifFileType, Close> m_file;
};

} // namespace

std::vector<std::uint8_t> GifEncoder::encode(const std::vector<Frame>& frames, unsigned int zoom)
{
    Zoom::require(zoom);
    requireFrames(frames);
    GifPalette palette;
    for (const Frame& frame : frames)
        palette.add(frame.screen);
    Hundredths end{};
    const std::vector<Moment> moments = toMoments(frames, palette, end);

    const std::size_t width = frames.front().screen.getWidth();
    const std::size_t height = frames.front().screen.getHeight();
    const bool moves = moments.size() > 1;
    GifStream gif(width, height, zoom, palette.getColours(), moves);
    for (std::size_t i = 0; i < moments.size(); ++i) {
        if (moves)
            gif.putDelay((i + 1 < moments.size() ? moments[i + 1].begin : end) - moments[i].begin);
        gif.putPart(moments[i].indices, i == 0 ? Rectangle{0, 0, width, height}
                                               : toChanged(moments[i - 1].indices, moments[i].indices, width));
    }
    return gif.finish();
}

} // namespace Vantor
