#include "simulator/replay/RecordComparison.h"

#include "referenceProtocol/WireFormat.h"
#include "simulator/panel/SliceDecoder.h"
#include "simulator/replay/RecordName.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

namespace Vantor {

namespace {

// A record, or a row of a slice, of either side.
struct Unit {
    PacketType type{};
    std::vector<std::uint8_t> bytes; // of the record
    std::size_t record = 0;          // its number on its side, from 1
    std::size_t frame = 0;           // of the capture; 0 of what was sent now
    std::chrono::nanoseconds time{0};

    // Of a row.
    bool isRow = false;
    std::vector<unsigned int> place; // LCD, row, left column, width, bits per pixel
    std::vector<std::uint32_t> pixels;
};

// Type and, of slices, LCD; one stream of all is type -1.
using StreamKey = std::pair<int, int>;
using Streams = std::map<StreamKey, std::vector<Unit>>;

// A slice can lack the last bits of its pixels, depending on where it was cut.
bool arePixelsEqual(const std::vector<std::uint32_t>& one, const std::vector<std::uint32_t>& other)
{
    const auto size = static_cast<std::ptrdiff_t>(std::min(one.size(), other.size()));
    return std::equal(one.begin(), one.begin() + size, other.begin());
}

bool areEqual(const Unit& one, const Unit& other)
{
    if (one.type != other.type || one.isRow != other.isRow)
        return false;
    return one.isRow ? one.place == other.place && arePixelsEqual(one.pixels, other.pixels) : one.bytes == other.bytes;
}

void addRows(const Unit& record, const SliceDecoder::Slice& slice, Streams& streams)
{
    constexpr std::size_t depthAt = 6; // in the payload
    auto pixel = slice.pixels.begin();
    for (unsigned int row = 0; row < slice.rows; ++row) {
        Unit unit = record;
        const auto size = std::min<std::ptrdiff_t>(slice.width, slice.pixels.end() - pixel);
        unit.isRow = true;
        unit.place = {slice.lcd, (slice.y + row) % 256U, slice.x, slice.width, record.bytes[depthAt]};
        unit.pixels.assign(pixel, pixel + size);
        unit.bytes.clear();
        pixel += size;
        streams[{static_cast<int>(PacketType::LcdSlice), slice.lcd}].push_back(std::move(unit));
    }
}

void addUnit(Unit record, const RecordComparison::Options& options, Streams& streams)
{
    if (options.ignored.count(record.type) != 0)
        return;
    const auto slice = isSlice(record.type) && !options.wholeOrder
                           ? SliceDecoder::decode(record.type, record.bytes).slice
                           : std::nullopt;
    if (slice)
        return addRows(record, *slice, streams);
    auto& stream = streams[options.wholeOrder ? StreamKey{-1, 0} : StreamKey{static_cast<int>(record.type), -1}];
    const bool isRepeated =
        record.type == WireFormat::reqDeviceInfoType && !stream.empty() && areEqual(stream.back(), record);
    if (!isRepeated)
        stream.push_back(std::move(record));
}

std::string hex(const std::vector<std::uint8_t>& bytes, std::size_t begin)
{
    constexpr std::size_t shown = 16;
    const std::size_t end = std::min(bytes.size(), begin + shown);
    std::string text = begin > 0 ? "..." : "";
    for (std::size_t i = begin; i < end; ++i) {
        char byte[4];
        std::snprintf(byte, sizeof byte, " %02x", static_cast<unsigned int>(bytes[i]));
        text += byte;
    }
    if (bytes.empty())
        text += " nothing";
    return end < bytes.size() ? text + " ..." : text;
}

std::string describeRow(const Unit& row)
{
    return "LCD " + std::to_string(row.place[0]) + ", row " + std::to_string(row.place[1]) + " from column " +
           std::to_string(row.place[2]) + ", " + std::to_string(row.place[3]) + " pixels of " +
           std::to_string(row.place[4]) + (row.place[4] == 1 ? " bit" : " bits");
}

// What it is, where, and when.
std::string describe(const Unit& unit)
{
    std::string text = nameOfType(unit.type) + ", ";
    text += unit.isRow ? describeRow(unit)
                       : std::to_string(unit.bytes.size()) + (unit.bytes.size() == 1 ? " byte" : " bytes");
    return text + ", at " + nameOfTime(unit.time) + (unit.frame != 0 ? ", frame " + std::to_string(unit.frame) : "");
}

// As the Wireshark dissector shows it.
std::string describePixel(std::uint32_t colour, unsigned int bits)
{
    if (bits == 1)
        return colour != 0 ? "#" : ".";
    char text[16];
    std::snprintf(text, sizeof text, "%06X", static_cast<unsigned int>(colour));
    return text;
}

std::string describePixels(const Unit& expected, const Unit& got)
{
    const auto pixels =
        std::mismatch(expected.pixels.begin(), expected.pixels.end(), got.pixels.begin(), got.pixels.end());
    const unsigned int bits = expected.place.back();
    return "\n  pixel " + std::to_string(pixels.first - expected.pixels.begin()) + " of the row: expected " +
           describePixel(*pixels.first, bits) + ", got " + describePixel(*pixels.second, bits);
}

std::string describeBytes(const Unit& expected, const Unit& got)
{
    constexpr std::size_t before = 4; // bytes in front of the first that differs
    const auto differing = static_cast<std::size_t>(
        std::mismatch(expected.bytes.begin(), expected.bytes.end(), got.bytes.begin(), got.bytes.end()).first -
        expected.bytes.begin());
    const std::size_t begin = differing > 2 * before ? differing - before : 0;
    return "\n  expected" + hex(expected.bytes, begin) + "\n  got     " + hex(got.bytes, begin) +
           "\n  they differ from byte " + std::to_string(differing) + " on";
}

std::string describeOther(const Unit& expected, const Unit& got)
{
    if (expected.type != got.type || expected.isRow != got.isRow || expected.place != got.place)
        return "\n  expected " + describe(expected) + "\n  got      " + describe(got);
    return (expected.isRow ? describePixels(expected, got) : describeBytes(expected, got)) + "\n  it came at " +
           nameOfTime(got.time);
}

// Where two streams first differ.
class Difference {
public:
    Difference(const std::vector<Unit>& expected, const std::vector<Unit>& got, bool isOpen)
        : m_expected(expected), m_got(got)
    {
        const auto first = std::mismatch(expected.begin(), expected.end(), got.begin(), got.end(), areEqual);
        m_at = static_cast<std::size_t>(first.first - expected.begin());
        m_isOne = m_at < expected.size() || (m_at < got.size() && !isOpen);
    }

    bool isOne() const { return m_isOne; }

    // To put differences of one panel in order.
    std::size_t record() const
    {
        if (m_at < m_expected.size())
            return m_expected[m_at].record;
        return m_expected.empty() ? m_got[m_at].record : m_expected.back().record + 1;
    }

    std::string describeIt() const
    {
        if (m_at == m_expected.size())
            return std::to_string(m_got.size() - m_at) + " more than the capture has: " + describe(m_got[m_at]) +
                   (m_got[m_at].isRow ? "" : "\n  got     " + hex(m_got[m_at].bytes, 0));
        const Unit& expected = m_expected[m_at];
        const std::string name = "record " + std::to_string(expected.record) + " (" + describe(expected) + ") ";
        if (m_at == m_got.size())
            return name + "does not come" + describeBehind(m_expected.size() - m_at - 1);
        if (isAt(m_at + 1, m_at) && isAt(m_at, m_at + 1))
            return name + "comes behind record " + std::to_string(m_expected[m_at + 1].record);
        if (isAt(m_at + 1, m_at))
            return name + "is missing: the one behind it comes, at " + nameOfTime(m_got[m_at].time);
        if (isAt(m_at, m_at + 1))
            return name + "comes behind one that the capture does not have: " + describe(m_got[m_at]) +
                   (m_got[m_at].isRow ? "" : "\n  got     " + hex(m_got[m_at].bytes, 0));
        return name + "is another" + describeOther(expected, m_got[m_at]);
    }

private:
    static std::string describeBehind(std::size_t missing)
    {
        return missing != 0 ? ", nor " + std::to_string(missing) + " behind it" : "";
    }

    bool isAt(std::size_t expected, std::size_t got) const
    {
        return expected < m_expected.size() && got < m_got.size() && areEqual(m_expected[expected], m_got[got]);
    }

    const std::vector<Unit>& m_expected;
    const std::vector<Unit>& m_got;
    std::size_t m_at = 0;
    bool m_isOne = false;
};

Streams streamsOf(const RecordedSession::Panel& panel, const RecordComparison::Options& options)
{
    Streams streams;
    std::size_t number = 0;
    for (const RecordedSession::Life& life : panel.lives)
        for (const RecordedSession::HostRecord& record : life.records)
            addUnit({record.type, record.payload, ++number, record.frame, record.frameTime, false, {}, {}}, options,
                    streams);
    return streams;
}

// In order of the records.
std::vector<std::string> compare(Streams expected, Streams got, bool isOpen)
{
    for (const auto& [key, stream] : expected)
        got[key];
    std::multimap<std::size_t, std::string> lines;
    for (const auto& [key, stream] : got) {
        const Difference difference(expected[key], stream, isOpen);
        if (difference.isOne())
            lines.emplace(difference.record(), difference.describeIt());
    }
    std::vector<std::string> inOrder;
    std::transform(lines.begin(), lines.end(), std::back_inserter(inOrder),
                   [](const auto& line) { return line.second; });
    return inOrder;
}

} // namespace

RecordComparison::RecordComparison(const RecordedSession& session, Options options)
    : m_session(session), m_options(std::move(options)), m_sent(session.panels.size())
{}

void RecordComparison::add(unsigned int panel, PacketType type, const std::vector<std::uint8_t>& payload,
                           std::chrono::nanoseconds time)
{
    if (panel >= m_sent.size())
        m_sent.resize(panel + 1U);
    m_sent[panel].push_back({type, payload, time});
}

std::vector<std::string> RecordComparison::describeDifferences() const
{
    std::vector<std::string> differences;
    for (std::size_t panel = 0; panel < m_sent.size(); ++panel) {
        const bool isRecorded = panel < m_session.panels.size();
        Streams expected;
        if (isRecorded)
            expected = streamsOf(m_session.panels[panel], m_options);
        Streams got;
        std::size_t number = 0;
        for (const Sent& sent : m_sent[panel])
            addUnit({sent.type, sent.payload, ++number, 0, sent.time, false, {}, {}}, m_options, got);
        const bool isOpen = isRecorded && m_session.panels[panel].isOpen;
        for (const std::string& line : compare(std::move(expected), std::move(got), isOpen))
            differences.push_back("panel " + std::to_string(panel) + ": " + line);
    }
    return differences;
}

} // namespace Vantor
