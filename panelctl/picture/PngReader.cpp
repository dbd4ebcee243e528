#include "panelctl/picture/PngReader.h"

#include "libMorvaneHostUsb/LcdPicture.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Wording.h"

#include <array>
#include <cerrno>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>
#include <vector>

#include <png.h>

namespace Vantor {

namespace {

constexpr std::size_t signatureSize = 8;
constexpr std::size_t sampleCount = 4; // red, green, blue, alpha

using Complaint = std::array<char, 160>;
using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

extern "C" [[noreturn]] void keepErrorAndLeave(png_structp png, png_const_charp message)
{
    auto& complaint = *static_cast<Complaint*>(png_get_error_ptr(png));
    std::snprintf(complaint.data(), complaint.size(), "%s", message);
    png_longjmp(png, 1);
}

extern "C" void ignoreWarning(png_structp, png_const_charp) {}

extern "C" void readForPng(png_structp png, png_bytep bytes, std::size_t size);

// libpng's state for one file, of which the signature has been read.
class Decoder {
public:
    Decoder(std::FILE* file, const PngReader::Limits& limits);
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    GreyPicture decode();

    // Null, or why there are no such bytes.
    const char* readBytes(std::uint8_t* bytes, std::size_t size);

private:
    // libpng's errors jump back to here: `call` may hold nothing that has a destructor.
    template <typename Call> void attempt(const Call& call)
    {
        if (setjmp(png_jmpbuf(m_png)) != 0)
            throw PngReader::Defect(std::string("is a damaged PNG file: ") + m_complaint.data());
        call();
    }

    std::uint32_t getWidth() const { return png_get_image_width(m_png, m_info); }
    std::uint32_t getHeight() const { return png_get_image_height(m_png, m_info); }

    void checkSize() const;
    int startRows();
    void readRows(int passes, std::uint8_t* pixels, std::size_t rowBytes);

    std::FILE* m_file;
    PngReader::Limits m_limits;
    std::size_t m_bytesLeft = SIZE_MAX;
    Complaint m_complaint{};
    png_structp m_png;
    png_infop m_info;
};

void readForPng(png_structp png, png_bytep bytes, std::size_t size)
{
    if (const char* const problem = static_cast<Decoder*>(png_get_io_ptr(png))->readBytes(bytes, size))
        png_error(png, problem);
}

Decoder::Decoder(std::FILE* file, const PngReader::Limits& limits)
    : m_file(file), m_limits(limits),
      m_png(png_create_read_struct(PNG_LIBPNG_VER_STRING, &m_complaint, keepErrorAndLeave, ignoreWarning)),
      m_info(m_png != nullptr ? png_create_info_struct(m_png) : nullptr)
{
    if (m_info == nullptr) {
        png_destroy_read_struct(&m_png, nullptr, nullptr);
        throw std::bad_alloc();
    }
    png_set_read_fn(m_png, this, readForPng);
    png_set_sig_bytes(m_png, signatureSize);
    // Checked here, with a message of our own.
    png_set_user_limits(m_png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    // Texts and profiles that nobody asks for are skipped packed: unpacked they can be
    // thousands of times as large.
    png_set_keep_unknown_chunks(m_png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
}

Decoder::~Decoder()
{
    png_destroy_read_struct(&m_png, &m_info, nullptr);
}

GreyPicture Decoder::decode()
{
    attempt([this] { png_read_info(m_png, m_info); });
    checkSize();
    const int passes = startRows();
    const std::size_t rowBytes = std::size_t{getWidth()} * sampleCount;
    if (png_get_rowbytes(m_png, m_info) != rowBytes)
        throw PngReader::Defect("has a pixel format that is not known");
    std::vector<std::uint8_t> pixels(rowBytes * getHeight());
    readRows(passes, pixels.data(), rowBytes);
    const LcdPicture picture(pixels.data(), getWidth(), getHeight(), BitmapImage::Rgba8888);
    return {picture.width, picture.height, picture.toGrey()};
}

const char* Decoder::readBytes(std::uint8_t* bytes, std::size_t size)
{
    if (size > m_bytesLeft)
        return "much more data than its pixels have";
    m_bytesLeft -= size;
    return std::fread(bytes, 1, size, m_file) == size ? nullptr : "Read Error";
}

void Decoder::checkSize() const
{
    if (getWidth() > m_limits.side || getHeight() > m_limits.side ||
        std::uint64_t{getWidth()} * getHeight() > m_limits.pixels)
        throw PngReader::Defect("is too large: " + std::to_string(getWidth()) + "x" + std::to_string(getHeight()) +
                                    " pixels, at most " + std::to_string(m_limits.side) + " a side and " +
                                    std::to_string(m_limits.pixels) + " in all are read",
                                true);
}

// Four bytes a pixel from here on; returns how often the rows come.
int Decoder::startRows()
{
    int passes = 0;
    attempt([this, &passes] {
        png_set_expand(m_png);
        png_set_scale_16(m_png);
        png_set_gray_to_rgb(m_png);
        png_set_add_alpha(m_png, 0xFF, PNG_FILLER_AFTER);
        passes = png_set_interlace_handling(m_png);
        png_read_update_info(m_png, m_info);
    });
    return passes;
}

// With the last row libpng unpacks and drops whatever is packed behind the pixels, a
// thousand bytes from each: so that row may not take much more than a row can.
void Decoder::readRows(int passes, std::uint8_t* pixels, std::size_t rowBytes)
{
    const std::size_t lastRowLimit = (std::size_t{1} << 14) + 4 * rowBytes;
    attempt([this, passes, pixels, rowBytes, lastRowLimit] {
        const std::uint32_t height = getHeight();
        for (int pass = 0; pass < passes; ++pass) {
            for (std::uint32_t y = 0; y < height; ++y) {
                if (pass + 1 == passes && y + 1 == height)
                    m_bytesLeft = lastRowLimit;
                png_read_row(m_png, pixels + y * rowBytes, nullptr);
            }
        }
        m_bytesLeft = SIZE_MAX;
        png_read_end(m_png, nullptr);
    });
}

[[noreturn]] void fail(const std::string& path, const std::string& cause)
{
    throw Failure(ExitCode::Usage, quote(path) + " " + cause + ".");
}

bool hasSignature(const std::uint8_t* bytes, std::size_t size)
{
    return size >= signatureSize && png_sig_cmp(bytes, 0, signatureSize) == 0;
}

File openPng(const std::string& path)
{
    File file(std::fopen(path.c_str(), "rbe"), std::fclose);
    std::array<std::uint8_t, signatureSize> signature{};
    const std::size_t size = file ? std::fread(signature.data(), 1, signature.size(), file.get()) : 0;
    if (!file || std::ferror(file.get()) != 0)
        fail(path, "can't be read: " + describeError(errno));
    if (!hasSignature(signature.data(), size))
        fail(path, "is not a PNG file");
    return file;
}

} // namespace

GreyPicture PngReader::read(const std::string& path)
{
    const File file = openPng(path);
    try {
        return Decoder(file.get(), Limits{}).decode();
    } catch (const Defect& defect) {
        const std::string advice = "\nScale it down first: an LCD shows 255x255 of it at most";
        fail(path, defect.what() + (defect.isTooLarge() ? "." + advice : ""));
    }
}

bool PngReader::isPng(const std::string& bytes)
{
    return hasSignature(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

GreyPicture PngReader::readBytes(const std::string& bytes, const Limits& limits)
{
    if (!isPng(bytes))
        throw Defect("is not a PNG file");
    // It is only read: "r".
    const File file(fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "r"), std::fclose);
    if (!file)
        throw std::bad_alloc();
    std::fseek(file.get(), signatureSize, SEEK_SET);
    return Decoder(file.get(), limits).decode();
}

} // namespace Vantor
