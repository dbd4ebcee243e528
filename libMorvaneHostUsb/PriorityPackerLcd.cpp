// The LCD side of PriorityPacker: layers, their slices, run-length encoding.
#include "libMorvaneHostUsb/LcdHelper.h"
#include "libMorvaneHostUsb/PackerCounts.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "libMorvaneHostUsb/imaging/LanePacking.h"
#include "libMorvaneHostUsb/imaging/Lanes.h"
#include "wire/RecordHeader.h"
#include "wire/SliceHeader.h"

// The one hard stop of the slice writers stays in every build.
#undef NDEBUG
#include <cassert>

#include <algorithm>
#include <cstring>
#include <memory>

namespace Vantor {

namespace {

constexpr unsigned int smallestSlice = 7;
constexpr unsigned int sliceOverhead = sizeof(RecordHeader) + sizeof(SliceHeader);
constexpr std::uint32_t wordMask = ~std::uint32_t{3};

// The top-edge test adds each bitmap's rowOffset, the bottom-edge test does not.
bool covers(const ClientLcdBitmap& bitmap, const ClientLcdBitmap& old)
{
    return bitmap.x <= old.x && bitmap.x + bitmap.width >= old.x + old.width &&
           bitmap.y + bitmap.rowOffset <= old.y + old.rowOffset && bitmap.y + bitmap.height >= old.y + old.height;
}

int formatOfDepth(unsigned int bitsPerPixel)
{
    switch (bitsPerPixel) {
    case 8:
        return BitmapImage::Rgb332;
    case 12:
        return BitmapImage::Rgb444;
    case 16:
        return BitmapImage::Rgb565;
    case 24:
        return BitmapImage::Rgb888;
    default:
        return 0;
    }
}

struct BoundingBox {
    // Layers that lie wholly beyond column or row 240 still give 240.
    int left = 240;
    int top = 240;
    int right = 0;
    int bottom = 0;
    unsigned char depth = 8;

    void include(const ClientLcdBitmap& layer)
    {
        left = std::min<int>(left, layer.x);
        top = std::min<int>(top, layer.y);
        right = std::max(right, layer.x + layer.width);
        bottom = std::max(bottom, layer.y + layer.height);
        depth = std::max(depth, layer.bitsPerPixel);
    }
};

BitmapImage viewOf(ClientLcdBitmap& bitmap, unsigned char depth)
{
    constexpr int flattenThreshold = 100;
    // Read at the flattened depth, not at its own: padded where that asks for more.
    const std::size_t needed = (static_cast<std::size_t>(depth) * bitmap.width * bitmap.height + 7) / 8;
    if (bitmap.buffer.size() < needed)
        bitmap.buffer.resize(needed);
    return {bitmap.data(), bitmap.width, bitmap.height, formatOfDepth(depth), flattenThreshold};
}

std::uint64_t pairAt(const unsigned int* pixels)
{
    std::uint64_t pair = 0;
    std::memcpy(&pair, pixels, sizeof pair);
    return pair;
}

unsigned int isEndOfRun(const unsigned int* pixel)
{
    return pixel[0] != pixel[1] ? 1 : 0;
}

constexpr std::ptrdiff_t runStep = LanePacking::runStep;

// Bit i tells whether pixel i is another than the next; for at most 32 pixels.
std::uint32_t findEndsOfRuns(const unsigned int* pixels, std::ptrdiff_t count)
{
    if (count == runStep && Lanes::areUsed())
        return LanePacking::findEndsOfRuns(pixels);
    std::uint32_t ends = 0;
    std::ptrdiff_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const unsigned int* const four = pixels + i;
        if (((pairAt(four) ^ pairAt(four + 1)) | (pairAt(four + 2) ^ pairAt(four + 3))) != 0)
            ends |=
                (isEndOfRun(four) | isEndOfRun(four + 1) << 1 | isEndOfRun(four + 2) << 2 | isEndOfRun(four + 3) << 3)
                << i;
    }
    for (; i < count; ++i)
        ends |= isEndOfRun(pixels + i) << i;
    return ends;
}

std::uint32_t runWord(unsigned int pixel, unsigned int run)
{
    return run | (__builtin_bswap32(pixel) & 0xFFFFFF00);
}

std::uint32_t* writeRun(std::uint32_t* word, const unsigned int* begin, const unsigned int* end)
{
    constexpr std::ptrdiff_t longestRun = 255;
    for (; end - begin > longestRun; begin += longestRun)
        *word++ = runWord(*begin, longestRun);
    *word++ = runWord(*begin, static_cast<unsigned int>(end - begin));
    return word;
}

// A row marker, then the row's runs; returns the end of the words. The ends of runs are
// looked for apart: a branch at each would be guessed wrong thousands of times in a
// dithered picture.
std::uint32_t* encodeRow(std::uint32_t* word, const unsigned int* row, std::size_t columns)
{
    *word++ = SliceHeader::rowMarker;
    const unsigned int* const last = row + columns - 1;
    const unsigned int* begin = row;
    for (std::ptrdiff_t at = 0; at < last - row; at += runStep) {
        const unsigned int* const part = row + at;
        for (std::uint32_t ends = findEndsOfRuns(part, std::min(runStep, last - part)); ends != 0; ends &= ends - 1) {
            const unsigned int* const end = part + __builtin_ctz(ends) + 1;
            word = writeRun(word, begin, end);
            begin = end;
        }
    }
    return writeRun(word, begin, last + 1);
}

// The part of a run-length layer that goes into one slice.
struct EncodedCut {
    std::uint32_t size;
    std::uint8_t rows;
    bool fits;
};

// Cuts before the last row marker within reach.
EncodedCut cutAtRowMarker(const ClientLcdBitmap& bitmap, std::uint32_t available, unsigned int remaining,
                          std::uint8_t rowsLeft)
{
    const std::uint32_t start = bitmap.byteOffset & wordMask;
    const std::uint32_t scanned = std::min(available & wordMask, ((remaining - 11) & wordMask) + 4);
    if (scanned == 0)
        return {available, 255, true};

    std::uint8_t markers = 0;
    std::uint32_t cut = available;
    for (std::uint32_t offset = 0; offset < scanned; offset += 4) {
        std::uint32_t word = 0;
        std::memcpy(&word, bitmap.data() + start + offset, sizeof word);
        if (word == SliceHeader::rowMarker) {
            ++markers;
            cut = offset;
        }
    }
    if (markers > rowsLeft)
        return {cut, rowsLeft, rowsLeft != 0};
    const auto rows = static_cast<std::uint8_t>(markers - 1);
    // Without any marker in reach the rest does not fit either.
    return {cut, rows, rows != 0 && cut + sliceOverhead <= remaining};
}

} // namespace

unsigned int PriorityPacker::_packLcdSlices(unsigned int count)
{
    bool progress = false;
    for (;;) {
        if (getPacketSizeRemaining() < smallestSlice)
            return count;
        ClientLcdBitmapData& lcd = m_nextLcd->second;
        if (!lcd.locked && !lcd.bitmaps.empty()) {
            if (!_packSlice(lcd))
                return count;
            ++count;
            progress = true;
        }
        if (lcd.bitmaps.empty())
            m_changedLcds.erase(m_nextLcd->first);
        if (++m_nextLcd == m_lcdData.end()) {
            // A first sweep that began behind other LCDs and packed nothing leaves
            // those for the next call.
            if (!progress)
                return count;
            m_nextLcd = m_lcdData.begin();
            progress = false;
        }
    }
}

bool PriorityPacker::_packSlice(ClientLcdBitmapData& lcd)
{
    const ClientLcdBitmap& front = lcd.bitmaps.front();
    const std::size_t written = front.encoded != 0 ? addBitmapDataToPacketEncoded(front) : addBitmapDataToPacket(front);
    if (written == 0)
        return false;
    m_counts->packSlice(written - sliceOverhead, front.complete != 0);
    if (front.complete != 0)
        lcd.bitmaps.pop_front();
    return true;
}

void PriorityPacker::drawBitmapData(const ClientLcdBitmap& bitmap)
{
    _drawBitmapData(bitmap);
}

void PriorityPacker::drawBitmapData(ClientLcdBitmap&& bitmap)
{
    _drawBitmapData(bitmap);
}

void PriorityPacker::_drawBitmapData(const ClientLcdBitmap& bitmap)
{
    {
        const std::lock_guard<std::mutex> lock(m_dataMutex);
        auto& layers = m_lcdData[bitmap.lcd].bitmaps;
        const std::size_t before = layers.size();
        layers.remove_if([&bitmap](const ClientLcdBitmap& old) { return covers(bitmap, old); });
        m_counts->coverPictures(before - layers.size());
        layers.push_back(bitmap);
        m_counts->addPicture();
        m_changedLcds.insert(bitmap.lcd);
    }
    notifyObserver();
}

void PriorityPacker::lockLcd(unsigned short lcd)
{
    const std::lock_guard<std::mutex> lock(m_dataMutex);
    m_lcdData[lcd].locked = true;
}

void PriorityPacker::unlockLcd(unsigned short lcd)
{
    {
        const std::lock_guard<std::mutex> lock(m_dataMutex);
        m_lcdData[lcd].locked = false;
    }
    notifyObserver();
}

void PriorityPacker::flattenLcdImage(unsigned short lcd)
{
    const std::lock_guard<std::mutex> lock(m_dataMutex);
    const auto entry = m_lcdData.find(lcd);
    if (entry == m_lcdData.end() || entry->second.bitmaps.empty())
        return;
    std::list<ClientLcdBitmap> layers = entry->second.bitmaps;
    BoundingBox box;
    for (const ClientLcdBitmap& layer : layers)
        box.include(layer);
    if (box.right < box.left || box.top > box.bottom)
        return;

    ClientLcdBitmap flat(static_cast<unsigned char>(box.right - box.left),
                         static_cast<unsigned char>(box.bottom - box.top), box.depth);
    flat.x = static_cast<std::uint8_t>(box.left);
    flat.y = static_cast<std::uint8_t>(box.top);
    BitmapImage flatImage = viewOf(flat, box.depth);
    for (ClientLcdBitmap& layer : layers)
        LcdHelper::compositeToLcd(&flatImage, viewOf(layer, box.depth), box.left - layer.x, box.top - layer.y);
    // The stored layers stay as they were: the flattened image replaces the copy only.
    layers.clear();
    layers.push_back(flat);
}

unsigned int PriorityPacker::encode(unsigned int pixel, unsigned char run)
{
    return runWord(pixel, run);
}

void PriorityPacker::compressImage(const unsigned int* pixels, int width, int height, int x, int y,
                                   ClientLcdBitmap& out)
{
    if (pixels == nullptr || width <= 0 || height <= 0)
        return;
    const auto columns = static_cast<std::size_t>(width);
    const auto rows = static_cast<std::size_t>(height);
    // As many as runs of one pixel take.
    const std::unique_ptr<std::uint32_t[]> words(new std::uint32_t[rows * (1 + columns)]);
    std::uint32_t* end = words.get();
    for (std::size_t row = 0; row < rows; ++row)
        end = encodeRow(end, pixels + row * columns, columns);

    const std::size_t bytes = static_cast<std::size_t>(end - words.get()) * sizeof *end;
    if (bytes > out.size()) {
        out.encodedSize = 0;
        return;
    }
    out.x = static_cast<std::uint8_t>(x);
    out.y = static_cast<std::uint8_t>(y);
    out.encodedSize = static_cast<std::uint32_t>(bytes);
    std::memcpy(out.data(), words.get(), bytes);
}

std::size_t PriorityPacker::addBitmapDataToPacket(const ClientLcdBitmap& bitmap)
{
    const unsigned int bitsPerRow = static_cast<unsigned int>(bitmap.width) * bitmap.bitsPerPixel;
    const unsigned int rowBytes = (bitsPerRow + 7) / 8;
    const unsigned int remaining = getPacketSizeRemaining();
    if (rowBytes == 0 || remaining <= sliceOverhead)
        return 0;
    const unsigned int fit = (remaining - sliceOverhead) / rowBytes;
    assert(bitmap.rowOffset <= bitmap.height);
    const unsigned int rowsLeft = static_cast<unsigned int>(bitmap.height - bitmap.rowOffset);
    const unsigned int rows = std::min(rowsLeft, fit);

    // The data is one run of bits, while `fit` counts each row in whole bytes.
    const std::size_t size = rows * bitsPerRow / 8;
    if (bitmap.byteOffset >= bitmap.size()) {
        bitmap.byteOffset = 0;
        bitmap.complete = 1;
    }
    if (rows == 0 || bitmap.byteOffset + size > bitmap.size())
        return 0;
    if (m_maxPacketSize < m_writePosition + size + sizeof(SliceHeader))
        return 0;

    _appendSlice(bitmap, PacketType::LcdSlice, rows, size);
    if (bitmap.rowOffset + rows >= bitmap.height) {
        // rowOffset keeps its value here; the encoded writer clears it.
        bitmap.complete = 1;
        bitmap.byteOffset = 0;
    } else {
        bitmap.rowOffset = static_cast<std::uint8_t>(bitmap.rowOffset + rows);
        bitmap.byteOffset += static_cast<std::uint32_t>(size);
    }
    return size + sliceOverhead;
}

std::size_t PriorityPacker::addBitmapDataToPacketEncoded(const ClientLcdBitmap& bitmap)
{
    const unsigned int remaining = getPacketSizeRemaining();
    // An encoded slice is only ever the first record of a packet.
    if (remaining <= sliceOverhead || getPacketCount() != 0)
        return 0;
    if (bitmap.encodedSize > bitmap.size() || bitmap.byteOffset > bitmap.encodedSize)
        return 0;

    const std::uint32_t available = bitmap.encodedSize - bitmap.byteOffset;
    const auto rowsLeft = static_cast<std::uint8_t>(bitmap.height - bitmap.rowOffset);
    EncodedCut cut{available, rowsLeft, rowsLeft != 0};
    if (available > remaining - sliceOverhead)
        cut = cutAtRowMarker(bitmap, available, remaining, rowsLeft);
    if (cut.size == 0 || !cut.fits)
        return 0;

    _appendSlice(bitmap, PacketType::EncodedLcdSlice, cut.rows, cut.size);
    if (bitmap.rowOffset + cut.rows < bitmap.height) {
        bitmap.byteOffset += cut.size;
        bitmap.rowOffset = static_cast<std::uint8_t>(bitmap.rowOffset + cut.rows);
    } else {
        bitmap.complete = 1;
        bitmap.byteOffset = 0;
        bitmap.rowOffset = 0;
    }
    return cut.size + sliceOverhead;
}

void PriorityPacker::_appendSlice(const ClientLcdBitmap& bitmap, PacketType type, unsigned int rows, std::size_t size)
{
    const RecordHeader record{static_cast<std::uint8_t>(type), static_cast<std::uint16_t>(sizeof(SliceHeader) + size)};
    const SliceHeader slice{bitmap.lcd,
                            bitmap.x,
                            static_cast<std::uint8_t>(bitmap.y + bitmap.rowOffset),
                            bitmap.width,
                            static_cast<std::uint8_t>(rows),
                            bitmap.bitsPerPixel};
    std::memcpy(m_packet + m_writePosition, &record, sizeof record);
    std::memcpy(m_packet + m_writePosition + sizeof record, &slice, sizeof slice);
    // An empty buffer has no address to copy nothing from.
    if (size != 0)
        std::memcpy(m_packet + m_writePosition + sliceOverhead, bitmap.data() + bitmap.byteOffset, size);
    m_writePosition += static_cast<std::uint32_t>(sliceOverhead + size);
    m_header.length = static_cast<std::uint16_t>(m_writePosition);
    m_header.count = static_cast<std::uint16_t>(m_header.count + 1);
    std::memcpy(m_packet, &m_header, sizeof m_header);
}

} // namespace Vantor
