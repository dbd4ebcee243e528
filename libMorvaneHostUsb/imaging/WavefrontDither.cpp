#include "libMorvaneHostUsb/imaging/WavefrontDither.h"

#include "libMorvaneHostUsb/imaging/ByteLanes.h"
#include "libMorvaneHostUsb/imaging/Diffusion.h"

#include <utility>

namespace Vantor {

namespace {

constexpr std::ptrdiff_t least(std::ptrdiff_t one, std::ptrdiff_t other)
{
    return one < other ? one : other;
}

constexpr std::ptrdiff_t most(std::ptrdiff_t one, std::ptrdiff_t other)
{
    return one > other ? one : other;
}

template <typename Diffusion> class Wavefront {
public:
    Wavefront(unsigned char* image, std::ptrdiff_t width, std::ptrdiff_t height, int threshold)
        : m_image(image), m_end(image + width * height), m_width(width), m_height(height),
          m_threshold(allLanes(static_cast<unsigned int>(most(0, least(threshold, 255))))),
          m_whites(allLanes(threshold > 255 ? 0 : 255))
    {}

    std::ptrdiff_t dither()
    {
        if (m_width < narrowest)
            return 0;
        std::ptrdiff_t row = 0;
        while (m_height - row >= fewestRows) {
            const std::ptrdiff_t left = m_height - row;
            // The last lanes of a band but the last only receive.
            const std::ptrdiff_t rows = left <= laneCount ? left : laneCount - reachDown();
            ditherBand(row, rows);
            row += rows;
        }
        return row;
    }

private:
    static constexpr const auto& shares = Diffusion::shares;
    using Inner = std::make_index_sequence<shares.size() - 1>; // all but the right neighbour's

    static constexpr std::ptrdiff_t fewestRows = 2; // a single one is quicker without

    static constexpr std::ptrdiff_t narrowest = 48; // the ends of two rows are never at work at once

    // How many pixels a row is behind the one above it: what is given to the lower left is
    // there by then.
    static constexpr std::ptrdiff_t lagOf()
    {
        std::ptrdiff_t steps = 0;
        for (const DiffusionShare& share : shares) {
            if (share.dy == 1)
                steps = most(steps, 1 - share.dx);
        }
        return steps;
    }

    static constexpr std::ptrdiff_t lag = lagOf();

    // The steps from a pixel to the one that gets its share.
    static constexpr std::ptrdiff_t delayOf(std::size_t share) { return shares[share].dx + lag * shares[share].dy; }

    static constexpr std::ptrdiff_t longestDelay()
    {
        std::ptrdiff_t longest = 0;
        for (std::size_t i = 0; i < shares.size(); ++i)
            longest = most(longest, delayOf(i));
        return longest;
    }

    static constexpr std::ptrdiff_t reachDown()
    {
        std::ptrdiff_t reach = 0;
        for (const DiffusionShare& share : shares)
            reach = most(reach, share.dy);
        return reach;
    }

    // Where a share is kept: with the others of the same part for the same row. The right
    // neighbour's is not.
    static constexpr std::size_t placeOf(std::size_t wanted)
    {
        std::size_t place = 0;
        for (std::size_t i = 1; i < wanted; ++i) {
            if (shares[i].dy == shares[wanted].dy && shares[i].part == shares[wanted].part)
                return placeOf(i);
            place += isFirstOfItsPlace(i) ? 1 : 0;
        }
        return place;
    }

    static constexpr bool isFirstOfItsPlace(std::size_t share)
    {
        for (std::size_t i = 1; i < share; ++i) {
            if (shares[i].dy == shares[share].dy && shares[i].part == shares[share].part)
                return false;
        }
        return true;
    }

    static constexpr std::size_t countPlaces()
    {
        std::size_t places = 0;
        for (std::size_t i = 1; i < shares.size(); ++i)
            places += isFirstOfItsPlace(i) ? 1 : 0;
        return places;
    }

    // What a pixel of each lane gives. To take it away stops at 0, to add it wraps: both
    // are an addition to the larger of the level and `floor`.
    struct Given {
        ByteLanes change;
        ByteLanes floor;
    };
    struct Step {
        Given given[countPlaces()];
    };

    // Where all lanes are: some outside the image or at column 0; one in row 0.
    enum class Place { Edge, Top, Middle };

    // Sixteen steps of all lanes. The steps before stay for what is received later.
    struct Band {
        unsigned char* top;
        std::ptrdiff_t rowsInImage;
        ByteLanes dithered;  // the lanes that do not only receive
        ByteLanes receiving; // all but the image's row 0
        Given carried;       // to the right neighbours
        Step steps[longestDelay() + laneCount];
    };

    void ditherBand(std::ptrdiff_t row, std::ptrdiff_t rows) const
    {
        Band band;
        band.top = m_image + row * m_width;
        band.rowsInImage = least(m_height - row, laneCount);
        band.dithered = firstLanes(rows);
        band.receiving = row == 0 ? ~firstLanes(1) : allLanes(255);
        band.carried = Given{ByteLanes{}, ByteLanes{}};
        std::memset(band.steps, 0, sizeof band.steps);
        const std::ptrdiff_t begin = lag * (laneCount - 1);
        const std::ptrdiff_t end = m_width + lag * (band.rowsInImage - 1);
        for (std::ptrdiff_t time = 0; time < end; time += laneCount) {
            if (time <= begin || time + laneCount > m_width)
                ditherSteps<Place::Edge>(band, time);
            else if (row == 0)
                ditherSteps<Place::Top>(band, time);
            else
                ditherSteps<Place::Middle>(band, time);
        }
    }

    template <Place place> void ditherSteps(Band& band, std::ptrdiff_t time) const
    {
        LaneSquare pixels;
        // The lanes that come past pixels of theirs.
        const std::ptrdiff_t firstLane = time < m_width ? 0 : (time - m_width) / lag + 1;
        const std::ptrdiff_t lanes = least(band.rowsInImage, (time + laneCount - 1) / lag + 1);
        for (std::ptrdiff_t lane = 0; lane < laneCount; ++lane)
            pixels[lane] = lane >= firstLane && lane < lanes ? load(band, lane, time - lag * lane) : ByteLanes{};
        transpose(pixels);
        Given carried = band.carried;
        for (std::ptrdiff_t i = 0; i < laneCount; ++i)
            pixels[i] = step<place>(band, pixels[i], time + i, carried, band.steps + longestDelay() + i);
        band.carried = carried;
        for (std::ptrdiff_t i = 0; i < longestDelay(); ++i)
            band.steps[i] = band.steps[laneCount + i];
        transpose(pixels);
        for (std::ptrdiff_t lane = firstLane; lane < lanes; ++lane)
            store(band, lane, time - lag * lane, pixels[lane]);
    }

    template <Place place>
    ByteLanes step(const Band& band, ByteLanes pixels, std::ptrdiff_t time, Given& carried, Step* now) const
    {
        ByteLanes levels = add(receive(pixels, now, Inner()), carried);
        ByteLanes isGiving = band.dithered;
        // Row 0 and column 0 never receive diffused error.
        if constexpr (place == Place::Edge) {
            const ByteLanes hasPixel = lanesFrom(0, time) & ~lanesFrom(m_width, time);
            levels = choose(band.receiving & lanesFrom(1, time) & hasPixel, levels, pixels);
            isGiving &= hasPixel;
        } else if constexpr (place == Place::Top) {
            levels = choose(band.receiving, levels, pixels);
        }
        const ByteLanes white = areAtLeast(levels, m_threshold) & m_whites;
        // An error is as large as the level of a black pixel, and as what a white one lacks.
        const ByteLanes errors = (levels ^ white) & isGiving;
        carried = shareOf<0>(errors, white);
        give(now, errors, white, Inner());
        return choose(isGiving, white, levels);
    }

    // The lanes that are at this column or behind it.
    static ByteLanes lanesFrom(std::ptrdiff_t column, std::ptrdiff_t time)
    {
        return firstLanes(time < column ? 0 : least((time - column) / lag + 1, laneCount));
    }

    static ByteLanes add(ByteLanes levels, const Given& given) { return larger(levels, given.floor) + given.change; }

    // Backwards is the order in which the givers come.
    template <std::size_t... indices>
    [[gnu::always_inline]] static ByteLanes receive(ByteLanes levels, const Step* now, std::index_sequence<indices...>)
    {
        ((levels = add(levels, received<sizeof...(indices) - indices>(now))), ...);
        return levels;
    }

    template <std::size_t share> static const Given& received(const Step* now)
    {
        constexpr std::size_t place = placeOf(share);
        return now[-delayOf(share)].given[place];
    }

    // To the rows below it is given to the lanes that follow.
    template <std::size_t... indices>
    [[gnu::always_inline]] static void give(Step* now, ByteLanes errors, ByteLanes white,
                                            std::index_sequence<indices...>)
    {
        const ByteLanes errorsAbove[] = {errors, down<1>(errors), down<2>(errors)};
        const ByteLanes whiteAbove[] = {white, down<1>(white), down<2>(white)};
        (
            [&] {
                constexpr std::size_t share = indices + 1;
                constexpr std::size_t place = placeOf(share);
                if constexpr (isFirstOfItsPlace(share))
                    now->given[place] = shareOf<share>(errorsAbove[shares[share].dy], whiteAbove[shares[share].dy]);
            }(),
            ...);
    }

    template <std::size_t share> static Given shareOf(ByteLanes errors, ByteLanes white)
    {
        const ByteLanes size = sizeOf<share>(errors);
        return {(size ^ white) - white, size & white};
    }

    template <std::size_t share> static ByteLanes sizeOf(ByteLanes errors)
    {
        constexpr DiffusionPart part = Diffusion::parts[shares[share].part];
        if constexpr (part.factor == 1) {
            return errors >> part.shift;
        } else {
            const WordLanes even = scaled<share>(WordLanes(errors) & 255);
            const WordLanes odd = scaled<share>(WordLanes(errors) >> 8);
            return ByteLanes(even | odd << 8);
        }
    }

    template <std::size_t share> static WordLanes scaled(WordLanes errors)
    {
        constexpr DiffusionPart part = Diffusion::parts[shares[share].part];
        return (errors * static_cast<std::uint16_t>(part.factor) + static_cast<std::uint16_t>(part.offset)) >>
               part.shift;
    }

    template <int rows> static ByteLanes down(ByteLanes lanes)
    {
        if constexpr (rows == 1)
            return __builtin_shufflevector(ByteLanes{}, lanes, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28,
                                           29, 30);
        else
            return __builtin_shufflevector(ByteLanes{}, lanes, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27,
                                           28, 29);
    }

    // Sixteen pixels of a lane's row from this column on. Before column 0 are the row
    // above's last ones and behind the last column the row below's first, which change at
    // other times, and stay as they are.
    ByteLanes load(const Band& band, std::ptrdiff_t lane, std::ptrdiff_t column) const
    {
        const unsigned char* const pixels = band.top + lane * m_width + column;
        if (m_end - pixels >= laneCount)
            return loadLanes(pixels);
        unsigned char last[laneCount] = {};
        std::memcpy(last, pixels, static_cast<std::size_t>(m_end - pixels));
        return loadLanes(last);
    }

    void store(const Band& band, std::ptrdiff_t lane, std::ptrdiff_t column, ByteLanes lanes) const
    {
        unsigned char* const pixels = band.top + lane * m_width + column;
        if (const std::ptrdiff_t left = m_end - pixels; left >= laneCount)
            storeLanes(pixels, lanes);
        else
            std::memcpy(pixels, &lanes, static_cast<std::size_t>(left));
    }

    unsigned char* m_image;
    unsigned char* m_end;
    std::ptrdiff_t m_width;
    std::ptrdiff_t m_height;
    ByteLanes m_threshold;
    ByteLanes m_whites;
};

} // namespace

std::ptrdiff_t WavefrontDither::floydSteinberg(unsigned char* image, std::ptrdiff_t width, std::ptrdiff_t height,
                                               int threshold)
{
    return Wavefront<FloydSteinbergDiffusion>(image, width, height, threshold).dither();
}

std::ptrdiff_t WavefrontDither::atkinson(unsigned char* image, std::ptrdiff_t width, std::ptrdiff_t height,
                                         int threshold)
{
    return Wavefront<AtkinsonDiffusion>(image, width, height, threshold).dither();
}

std::ptrdiff_t WavefrontDither::stucki(unsigned char* image, std::ptrdiff_t width, std::ptrdiff_t height, int threshold)
{
    return Wavefront<StuckiDiffusion>(image, width, height, threshold).dither();
}

} // namespace Vantor
