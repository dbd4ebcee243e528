// Pictures as run-length words, beside a literal transcription and compressors that take
// the same pixels. Arguments: width and height. Items are pixels; "bytes" is what comes
// out. Nobody but us knows pixels: the others are given bytes, and PackBits, which counts
// equal bytes, each colour by itself.

#include "benchmarks/LiteralImaging.h"
#include "benchmarks/Pictures.h"
#include "libMorvaneHostUsb/LcdHelper.h"
#include "libMorvaneHostUsb/PriorityPacker.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>
#include <zlib.h>
#ifdef MORVANE_PEER_LIBLZ4
#include <lz4.h>
#endif
#ifdef MORVANE_PEER_LIBTIFF_4
#include <tiffio.h>
#endif

namespace Vantor {
namespace {

using Pixels = std::vector<unsigned int>;
using Picture = Pixels (*)(int width, int height);

// Nearly no runs.
Pixels dithered(int width, int height)
{
    auto grey = Pictures::grey(width, height);
    LcdHelper::ditherImage(grey.data(), width, height, LcdHelper::FloydSteinberg, 128);
    Pixels pixels;
    for (const unsigned char level : grey)
        pixels.push_back(level == 0 ? 0x102030 : 0xF0F0F0);
    return pixels;
}

int compressedWidth(const benchmark::State& state)
{
    return static_cast<int>(state.range(0));
}

int compressedHeight(const benchmark::State& state)
{
    return static_cast<int>(state.range(1));
}

// Bytes, for all that any contender makes of the pixels.
std::size_t roomFor(const Pixels& pixels)
{
    return pixels.size() * 8 + 4096;
}

// `work` takes pixels and a target with room for what becomes of them, and says how
// many bytes it has made.
template <typename Work> void onPixels(benchmark::State& state, Picture picture, const Work& work)
{
    const auto pixels = picture(compressedWidth(state), compressedHeight(state));
    // Far from the pixels' own place in a page: some processors copy slowly between equals.
    constexpr std::size_t apart = 2000;
    std::vector<unsigned char> room(roomFor(pixels) + apart);
    unsigned char* const target = room.data() + apart;
    std::size_t made = 0;
    for ([[maybe_unused]] auto _ : state) {
        made = work(pixels, target);
        benchmark::DoNotOptimize(target);
        benchmark::ClobberMemory();
    }
    if (made == 0)
        state.SkipWithError("nothing was made of the picture");
    state.counters["bytes"] = static_cast<double>(made);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(pixels.size()));
}

template <Picture picture> void compress(benchmark::State& state)
{
    const int width = compressedWidth(state);
    const int height = compressedHeight(state);
    ClientLcdBitmap out(static_cast<unsigned char>(width), static_cast<unsigned char>(height), 24);
    out.buffer.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 8);
    onPixels(state, picture, [&](const Pixels& pixels, unsigned char* /*target*/) {
        PriorityPacker::compressImage(pixels.data(), width, height, 0, 0, out);
        return static_cast<std::size_t>(out.encodedSize);
    });
}

template <Picture picture> void compressLiteral(benchmark::State& state)
{
    onPixels(state, picture, [&state](const Pixels& pixels, unsigned char* target) {
        const auto words = LiteralImaging::compress(pixels.data(), compressedWidth(state), compressedHeight(state));
        std::memcpy(target, words.data(), words.size() * sizeof words[0]);
        return words.size() * sizeof words[0];
    });
}

template <Picture picture> void copyPixels(benchmark::State& state)
{
    onPixels(state, picture, [](const Pixels& pixels, unsigned char* target) {
        std::memcpy(target, pixels.data(), pixels.size() * sizeof pixels[0]);
        return pixels.size() * sizeof pixels[0];
    });
}

template <Picture picture> void zlibFastest(benchmark::State& state)
{
    onPixels(state, picture, [](const Pixels& pixels, unsigned char* target) {
        uLongf size = roomFor(pixels);
        const int status = compress2(target, &size, reinterpret_cast<const Bytef*>(pixels.data()),
                                     pixels.size() * sizeof pixels[0], Z_BEST_SPEED);
        return status == Z_OK ? static_cast<std::size_t>(size) : 0;
    });
}

BENCHMARK(compress<Pictures::drawing>)->Args({144, 168});
BENCHMARK(compress<dithered>)->Args({144, 168});
BENCHMARK(compressLiteral<Pictures::drawing>)->Args({144, 168});
BENCHMARK(compressLiteral<dithered>)->Args({144, 168});
BENCHMARK(copyPixels<Pictures::drawing>)->Args({144, 168});
BENCHMARK(copyPixels<dithered>)->Args({144, 168});
BENCHMARK(zlibFastest<Pictures::drawing>)->Args({144, 168});
BENCHMARK(zlibFastest<dithered>)->Args({144, 168});

#ifdef MORVANE_PEER_LIBLZ4
template <Picture picture> void lz4(benchmark::State& state)
{
    onPixels(state, picture, [](const Pixels& pixels, unsigned char* target) {
        const int size =
            LZ4_compress_default(reinterpret_cast<const char*>(pixels.data()), reinterpret_cast<char*>(target),
                                 static_cast<int>(pixels.size() * sizeof pixels[0]), static_cast<int>(roomFor(pixels)));
        return static_cast<std::size_t>(size);
    });
}

BENCHMARK(lz4<Pictures::drawing>)->Args({144, 168});
BENCHMARK(lz4<dithered>)->Args({144, 168});
#endif

#ifdef MORVANE_PEER_LIBTIFF_4
// A file in memory; without a limit, as its bytes are known to fit.
struct TiffFile {
    unsigned char* bytes;
    std::size_t size;
    std::size_t at;

    static tmsize_t read(thandle_t /*file*/, void* /*bytes*/, tmsize_t /*size*/) { return 0; }
    static tmsize_t write(thandle_t handle, void* bytes, tmsize_t size)
    {
        auto& file = *static_cast<TiffFile*>(handle);
        std::memcpy(file.bytes + file.at, bytes, static_cast<std::size_t>(size));
        file.at += static_cast<std::size_t>(size);
        file.size = std::max(file.size, file.at);
        return size;
    }
    static toff_t seek(thandle_t handle, toff_t offset, int whence)
    {
        auto& file = *static_cast<TiffFile*>(handle);
        const std::size_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? file.at : file.size;
        file.at = base + offset;
        return file.at;
    }
    static int close(thandle_t /*file*/) { return 0; }
    static toff_t getSize(thandle_t handle) { return static_cast<TiffFile*>(handle)->size; }
};

// Three planes, a strip for each.
std::size_t writeTiff(std::vector<unsigned char>& planes, int width, int height, unsigned char* target)
{
    TiffFile file{target, 0, 0};
    TIFF* const tiff = TIFFClientOpen("memory", "wm", &file, TiffFile::read, TiffFile::write, TiffFile::seek,
                                      TiffFile::close, TiffFile::getSize, nullptr, nullptr);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS);
    const auto plane = static_cast<tmsize_t>(planes.size() / 3);
    std::size_t made = 0;
    for (std::uint32_t strip = 0; strip < 3; ++strip) {
        const tmsize_t written = TIFFWriteEncodedStrip(tiff, strip, &planes[strip * planes.size() / 3], plane);
        made = written == plane ? file.size : 0;
    }
    TIFFClose(tiff);
    return made;
}

// The planes are there before the clock runs.
template <Picture picture> void tiffPackBits(benchmark::State& state)
{
    const int width = compressedWidth(state);
    const int height = compressedHeight(state);
    std::vector<unsigned char> planes;
    for (const int shift : {16, 8, 0}) {
        for (const unsigned int pixel : picture(width, height))
            planes.push_back(static_cast<unsigned char>(pixel >> shift));
    }
    onPixels(state, picture,
             [&](const Pixels& /*pixels*/, unsigned char* target) { return writeTiff(planes, width, height, target); });
}

BENCHMARK(tiffPackBits<Pictures::drawing>)->Args({144, 168});
BENCHMARK(tiffPackBits<dithered>)->Args({144, 168});
#endif

} // namespace
} // namespace Vantor
