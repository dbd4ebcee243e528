// Pictures, beside a literal transcription of the rules and, where it has the same,
// leptonica. Arguments: width and height. Items are pixels. Contenders with "Rows" go
// without byte lanes.

#include "benchmarks/LiteralImaging.h"
#include "benchmarks/Pictures.h"
#include "libMorvaneHostUsb/LcdHelper.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "libMorvaneHostUsb/imaging/Lanes.h"

#include <cstring>
#include <memory>

#include <benchmark/benchmark.h>
#ifdef MORVANE_PEER_LEPT
#include <leptonica/allheaders.h>
#endif

namespace Vantor {
namespace {

constexpr int threshold = 128;

int widthOf(const benchmark::State& state)
{
    return static_cast<int>(state.range(0));
}

int heightOf(const benchmark::State& state)
{
    return static_cast<int>(state.range(1));
}

void countPixels(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * widthOf(state) * heightOf(state));
}

// On a fresh copy of the picture each time; the copying counts, with all contenders.
template <typename Work> void onPicture(benchmark::State& state, const Work& work)
{
    const std::vector<unsigned char> picture = Pictures::grey(widthOf(state), heightOf(state));
    // Far from the picture's own place in a page: some processors copy slowly between equals.
    constexpr std::size_t apart = 2000;
    std::vector<unsigned char> room(picture.size() + apart);
    unsigned char* const grey = room.data() + apart;
    for ([[maybe_unused]] auto _ : state) {
        std::memcpy(grey, picture.data(), picture.size());
        work(grey, widthOf(state), heightOf(state));
        benchmark::DoNotOptimize(grey);
        benchmark::ClobberMemory();
    }
    countPixels(state);
}

template <int type> void dither(benchmark::State& state)
{
    onPicture(state, [](unsigned char* grey, int width, int height) {
        LcdHelper::ditherImage(grey, width, height, static_cast<LcdHelper::DitherType>(type), threshold);
    });
}

template <int type> void ditherRows(benchmark::State& state)
{
    Lanes::use(false);
    dither<type>(state);
    Lanes::use(true);
}

template <int type> void ditherLiteral(benchmark::State& state)
{
    onPicture(state, [](unsigned char* grey, int width, int height) {
        LiteralImaging::dither(grey, width, height, type, threshold);
    });
}

void drawPages(benchmark::State& state)
{
    std::vector<unsigned char> lcd(static_cast<std::size_t>((heightOf(state) + 7) / 8 * widthOf(state)));
    onPicture(state, [&lcd](const unsigned char* grey, int width, int height) {
        LcdHelper::compositeToLcd(lcd.data(), grey, static_cast<unsigned int>(width), static_cast<unsigned int>(height),
                                  static_cast<unsigned int>(width), static_cast<unsigned int>(height), 0, 0, threshold);
    });
}

void drawPagesLiteral(benchmark::State& state)
{
    std::vector<unsigned char> lcd(static_cast<std::size_t>((heightOf(state) + 7) / 8 * widthOf(state)));
    onPicture(state, [&lcd](const unsigned char* grey, int width, int height) {
        LiteralImaging::drawPages(lcd.data(), static_cast<unsigned int>(width), static_cast<unsigned int>(height), grey,
                                  static_cast<unsigned int>(width), static_cast<unsigned int>(height), 0, 0, threshold);
    });
}

// At a column that is no multiple of 8: third argument.
void drawRows(benchmark::State& state)
{
    TransLcdBitmap lcd{};
    onPicture(state, [&](const unsigned char* grey, int width, int height) {
        LcdHelper::compositeToLcd(&lcd, grey, static_cast<unsigned int>(width), static_cast<unsigned int>(height),
                                  static_cast<int>(state.range(2)), 0, threshold);
    });
}

void drawRowsLiteral(benchmark::State& state)
{
    TransLcdBitmap lcd{};
    onPicture(state, [&](const unsigned char* grey, int width, int height) {
        LiteralImaging::drawRows(lcd.data, TransLcdBitmap::width, TransLcdBitmap::height, grey,
                                 static_cast<unsigned int>(width), static_cast<unsigned int>(height),
                                 static_cast<int>(state.range(2)), 0, threshold);
    });
}

// Grey to dithered to bits to a layer that waits in a packer.
void wholePath(benchmark::State& state)
{
    onPicture(state, [](unsigned char* grey, int width, int height) {
        LcdHelper::ditherImage(grey, width, height, LcdHelper::FloydSteinberg, threshold);
        ClientLcdBitmap layer(static_cast<unsigned char>(width), static_cast<unsigned char>(height), 1);
        TransLcdBitmap lcd{};
        LcdHelper::compositeToLcd(&lcd, grey, static_cast<unsigned int>(width), static_cast<unsigned int>(height), 0, 0,
                                  threshold);
        layer.buffer.assign(std::begin(lcd.data), std::end(lcd.data));
        PriorityPacker packer(8192);
        packer.drawBitmapData(layer);
        benchmark::DoNotOptimize(packer.prepareNextPacket());
    });
}

// Arguments: width, height, formats of the source and of the target.
template <void (*copy)(BitmapImage*, const BitmapImage&, int, int)> void copyImages(benchmark::State& state)
{
    const auto size = static_cast<std::size_t>(widthOf(state)) * static_cast<std::size_t>(heightOf(state)) * 4 + 2;
    std::vector<unsigned char> bytes(size, 0x5A);
    std::vector<unsigned char> copied(size);
    const BitmapImage source{bytes.data(), widthOf(state), heightOf(state), static_cast<int>(state.range(2)), 0};
    BitmapImage target{copied.data(), widthOf(state), heightOf(state), static_cast<int>(state.range(3)), 0};
    for ([[maybe_unused]] auto _ : state) {
        copy(&target, source, 0, 0);
        benchmark::ClobberMemory();
    }
    countPixels(state);
}

void copyLiterally(BitmapImage* target, const BitmapImage& source, int x, int y)
{
    LiteralImaging::copy(*target, source, x, y);
}

// Which all of the above begin with.
void copyGrey(benchmark::State& state)
{
    onPicture(state, [](const unsigned char*, int, int) {});
}

void lcdSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Args({128, 64})->Args({144, 168})->Args({1024, 1024});
}

BENCHMARK(dither<LcdHelper::FloydSteinberg>)->Apply(lcdSizes);
BENCHMARK(ditherRows<LcdHelper::FloydSteinberg>)->Apply(lcdSizes);
BENCHMARK(ditherLiteral<LcdHelper::FloydSteinberg>)->Apply(lcdSizes);
BENCHMARK(dither<LcdHelper::Atkinson>)->Apply(lcdSizes);
BENCHMARK(ditherRows<LcdHelper::Atkinson>)->Apply(lcdSizes);
BENCHMARK(ditherLiteral<LcdHelper::Atkinson>)->Apply(lcdSizes);
BENCHMARK(dither<LcdHelper::Stucki>)->Apply(lcdSizes);
BENCHMARK(ditherRows<LcdHelper::Stucki>)->Apply(lcdSizes);
BENCHMARK(ditherLiteral<LcdHelper::Stucki>)->Apply(lcdSizes);
BENCHMARK(dither<LcdHelper::Threshold>)->Apply(lcdSizes);
BENCHMARK(ditherRows<LcdHelper::Threshold>)->Apply(lcdSizes);
BENCHMARK(ditherLiteral<LcdHelper::Threshold>)->Apply(lcdSizes);
BENCHMARK(drawPages)->Apply(lcdSizes);
BENCHMARK(drawPagesLiteral)->Apply(lcdSizes);
BENCHMARK(drawRows)->Args({144, 168, 0})->Args({139, 168, 5});
BENCHMARK(drawRowsLiteral)->Args({144, 168, 0})->Args({139, 168, 5});
BENCHMARK(wholePath)->Args({144, 168});
BENCHMARK(copyImages<LcdHelper::compositeToLcd>)->ArgsProduct({{144}, {168}, {2, 3, 4, 5, 6, 7}, {4, 5, 6}});
BENCHMARK(copyImages<copyLiterally>)->ArgsProduct({{144}, {168}, {2, 3, 4, 5, 6, 7}, {4, 5, 6}});
BENCHMARK(copyGrey)->Apply(lcdSizes);

#ifdef MORVANE_PEER_LEPT
struct PixDeleter {
    void operator()(PIX* pix) const { pixDestroy(&pix); }
};
using Pix = std::unique_ptr<PIX, PixDeleter>;

template <PIX* (*toBinary)(PIX*)> void leptonica(benchmark::State& state)
{
    const auto picture = Pictures::grey(widthOf(state), heightOf(state));
    const Pix grey(pixCreate(widthOf(state), heightOf(state), 8));
    auto level = picture.begin();
    for (int y = 0; y < heightOf(state); ++y) {
        for (int x = 0; x < widthOf(state); ++x)
            pixSetPixel(grey.get(), x, y, *level++);
    }
    for ([[maybe_unused]] auto _ : state) {
        const Pix binary(toBinary(grey.get()));
        benchmark::DoNotOptimize(binary.get());
    }
    countPixels(state);
}

PIX* toBinaryAtThreshold(PIX* grey)
{
    return pixThresholdToBinary(grey, threshold);
}

BENCHMARK(leptonica<pixDitherToBinary>)->Apply(lcdSizes);
BENCHMARK(leptonica<toBinaryAtThreshold>)->Apply(lcdSizes);
#endif

} // namespace
} // namespace Vantor
