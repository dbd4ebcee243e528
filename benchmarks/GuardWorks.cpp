// The works whose executed instructions benchmarks/guard counts:
//   guardWorks WORK ROUNDS
//   guardWorks --list        the works
//   guardWorks --built       the compiler and the C library that are in it
// It prints nothing while it works, and does the same in each round.

#include "benchmarks/Pictures.h"
#include "libMorvaneHostUsb/LcdHelper.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "libMorvaneHostUsb/UsbMessageQueue.h"
#include "protocol/PackedPacketParser.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <gnu/libc-version.h>

using namespace Vantor;

namespace {

// An LCD of the smaller size: an emulated processor executes a million instructions a second.
constexpr int width = 128;
constexpr int height = 64;
constexpr auto pixelCount = static_cast<std::size_t>(width) * height;
constexpr int threshold = 128;
constexpr auto type = static_cast<PacketType>(5);

template <LcdHelper::DitherType dithering> void dither(int rounds)
{
    const auto picture = Pictures::grey(width, height);
    auto grey = picture;
    for (int i = 0; i < rounds; ++i) {
        grey = picture;
        LcdHelper::ditherImage(grey.data(), width, height, dithering, threshold);
    }
}

void drawPages(int rounds)
{
    const auto grey = Pictures::grey(width, height);
    std::vector<unsigned char> lcd(pixelCount / 8);
    for (int i = 0; i < rounds; ++i)
        LcdHelper::compositeToLcd(lcd.data(), grey.data(), width, height, width, height, 0, 0, threshold);
}

// At a column that is no multiple of 8.
void drawRows(int rounds)
{
    const auto grey = Pictures::grey(width, height);
    TransLcdBitmap lcd{};
    for (int i = 0; i < rounds; ++i)
        LcdHelper::compositeToLcd(&lcd, grey.data(), width, height, 5, 0, threshold);
}

void compress(int rounds)
{
    const auto pixels = Pictures::drawing(width, height);
    ClientLcdBitmap out(width, height, 24);
    out.buffer.resize(pixels.size() * 8);
    for (int i = 0; i < rounds; ++i)
        PriorityPacker::compressImage(pixels.data(), width, height, 0, 0, out);
}

void copyImage(int rounds)
{
    std::vector<unsigned char> words(pixelCount * 2, 0x5A);
    std::vector<unsigned char> triples(pixelCount * 3);
    const BitmapImage source{words.data(), width, height, BitmapImage::Rgb565, 0};
    BitmapImage target{triples.data(), width, height, BitmapImage::Rgb888, 0};
    for (int i = 0; i < rounds; ++i)
        LcdHelper::compositeToLcd(&target, source, 0, 0);
}

// A hundred records with a key and a hundred without, a value of each key that is
// overwritten, and the packet that takes them.
void packRecords(int rounds)
{
    const std::vector<unsigned char> first(16, 0x5A);
    const std::vector<unsigned char> second(16, 0x5B);
    PriorityPacker packer(8192);
    for (int i = 0; i < rounds; ++i) {
        for (unsigned int key = 0; key < 100; ++key) {
            packer.addStructData(first.data(), 16, type);
            packer.addStructData(first.data(), 16, type, key);
            packer.addStructData(second.data(), 16, type, key);
        }
        packer.prepareNextPacket();
        packer.clearData();
    }
}

class Nobody : public PackedPacketParser::Observer {
public:
    void handleParsedPacket(unsigned short /*deviceId*/, const PacketType& /*type*/, const DataPacketUnion& /*data*/,
                            unsigned int /*size*/) override
    {}
};

template <unsigned int size> void parse(int rounds)
{
    const std::vector<unsigned char> payload(size, 0x5A);
    PacketPacker packer(8192);
    while (packer.addStructData(payload.data(), size, type) != 0) {
    }
    std::vector<unsigned char> packet(packer.getPacket(), packer.getPacket() + packer.getPacketSize());
    Nobody nobody;
    PackedPacketParser parser(&nobody);
    for (int i = 0; i < rounds; ++i)
        parser.parse(packet.data(), static_cast<unsigned int>(packet.size()));
}

void passMessages(int rounds)
{
    UsbMessageQueue queue;
    for (int i = 0; i < rounds; ++i) {
        for (int message = 0; message < 100; ++message)
            queue.addMessage(std::make_unique<UsbMessage>(1U, static_cast<unsigned short>(512)));
        for (int message = 0; message < 100; ++message)
            queue.getMessage();
    }
}

struct Work {
    const char* name;
    void (*run)(int rounds);
};

constexpr Work works[] = {
    {"floyd-steinberg", dither<LcdHelper::FloydSteinberg>},
    {"atkinson", dither<LcdHelper::Atkinson>},
    {"stucki", dither<LcdHelper::Stucki>},
    {"threshold", dither<LcdHelper::Threshold>},
    {"pages", drawPages},
    {"rows", drawRows},
    {"run-length", compress},
    {"rgb565-to-rgb888", copyImage},
    {"200-records-out", packRecords},
    {"records-of-4-in", parse<4>},
    {"records-of-64-in", parse<64>},
    {"100-messages", passMessages},
};

int list()
{
    for (const Work& work : works)
        std::puts(work.name);
    return 0;
}

int tellBuilt()
{
    std::printf("compiler %s, C library %s\n", __VERSION__, gnu_get_libc_version());
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string word = argc > 1 ? argv[1] : "";
    if (word == "--list")
        return list();
    if (word == "--built")
        return tellBuilt();
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 0;
    for (const Work& work : works) {
        if (word == work.name && rounds > 0) {
            work.run(rounds);
            return 0;
        }
    }
    std::fputs("usage: guardWorks WORK ROUNDS | --list | --built\n", stderr);
    return 2;
}
