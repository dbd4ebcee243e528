#include "panelctl/picture/PngReader.h"

#include "libMorvaneHostUsb/LcdPicture.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Wording.h"

#include <array>
#include <cerrno>
#include <csetjmp>
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

[[noreturn]] void fail(const std::string& path, const std::string& cause)
{
    throw Failure(ExitCode::Usage, quote(path) + " " + cause + ".");
}

extern "C" [[noreturn]] void keepErrorAndLeave(png_structp png, png_const_charp message)
{
    auto& complaint = *static_cast<Complaint*>(png_get_error_ptr(png));
    std::snprintf(complaint.data(), complaint.size(), "%s", message);
    png_longjmp(png, 1);
}

extern "C" void ignoreWarning(png_structp, png_const_charp) {}

// libpng's state for one file, which it is told is open and past its signature.
class Decoder {
public:
    Decoder(const std::string& path, std::FILE* file);
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    std::uint32_t getWidth() const { return png_get_image_width(m_png, m_info); }
    std::uint32_t getHeight() const { return png_get_image_height(m_png, m_info); }

    // Four bytes a pixel.
    std::vector<std::uint8_t> readPixels();

private:
    // libpng's errors jump back to here: `call` may hold nothing that has a destructor.
    template <typename Call> void attempt(const Call& call)
    {
        if (setjmp(png_jmpbuf(m_png)) != 0)
            fail(m_path, std::string("is a damaged PNG file: ") + m_complaint.data());
        call();
    }

    void checkSize() const;

    const std::string& m_path;
    Complaint m_complaint{};
    png_structp m_png;
    png_infop m_info;
};

Decoder::Decoder(const std::string& path, std::FILE* file)
    : m_path(path),
      m_png(png_create_read_struct(PNG_LIBPNG_VER_STRING, &m_complaint, keepErrorAndLeave, ignoreWarning)),
      m_info(m_png != nullptr ? png_create_info_struct(m_png) : nullptr)
{
    if (m_info == nullptr) {
        png_destroy_read_struct(&m_png, nullptr, nullptr);
        throw std::bad_alloc();
    }
    png_init_io(m_png, file);
    png_set_sig_bytes(m_png, signatureSize);
    // Checked here, with a message of our own.
    png_set_user_limits(m_png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
}

Decoder::~Decoder()
{
    png_destroy_read_struct(&m_png, &m_info, nullptr);
}

std::vector<std::uint8_t> Decoder::readPixels()
{
    attempt([this] { png_read_info(m_png, m_info); });
    checkSize();
    attempt([this] {
        png_set_expand(m_png);
        png_set_scale_16(m_png);
        png_set_gray_to_rgb(m_png);
        png_set_add_alpha(m_png, 0xFF, PNG_FILLER_AFTER);
        png_set_interlace_handling(m_png);
        png_read_update_info(m_png, m_info);
    });
    const std::size_t rowBytes = std::size_t{getWidth()} * sampleCount;
    if (png_get_rowbytes(m_png, m_info) != rowBytes)
        fail(m_path, "has a pixel format that is not known");
    std::vector<std::uint8_t> pixels(rowBytes * getHeight());
    std::vector<std::uint8_t*> rows(getHeight());
    for (std::size_t y = 0; y < rows.size(); ++y)
        rows[y] = pixels.data() + y * rowBytes;
    attempt([this, &rows] {
        png_read_image(m_png, rows.data());
        png_read_end(m_png, nullptr);
    });
    return pixels;
}

void Decoder::checkSize() const
{
    if (getWidth() > PngReader::maxSide || getHeight() > PngReader::maxSide ||
        std::uint64_t{getWidth()} * getHeight() > PngReader::maxPixels)
        fail(m_path, "is too large: " + std::to_string(getWidth()) + "x" + std::to_string(getHeight()) +
                         " pixels, at most " + std::to_string(PngReader::maxSide) + " a side and " +
                         std::to_string(PngReader::maxPixels) +
                         " in all are read.\nScale it down first: an LCD shows 255x255 of it at most");
}

File openPng(const std::string& path)
{
    File file(std::fopen(path.c_str(), "rbe"), std::fclose);
    std::array<std::uint8_t, signatureSize> signature{};
    const std::size_t size = file ? std::fread(signature.data(), 1, signature.size(), file.get()) : 0;
    if (!file || std::ferror(file.get()) != 0)
        fail(path, "can't be read: " + describeError(errno));
    if (size != signature.size() || png_sig_cmp(signature.data(), 0, signature.size()) != 0)
        fail(path, "is not a PNG file");
    return file;
}

} // namespace

GreyPicture PngReader::read(const std::string& path)
{
    const File file = openPng(path);
    Decoder decoder(path, file.get());
    const std::vector<std::uint8_t> pixels = decoder.readPixels();
    const LcdPicture picture(pixels.data(), decoder.getWidth(), decoder.getHeight(), BitmapImage::Rgba8888);
    return {picture.width, picture.height, picture.toGrey()};
}

} // namespace Vantor
