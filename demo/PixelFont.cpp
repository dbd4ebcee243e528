#include "demo/PixelFont.h"

#include <cstdint>

namespace Vantor {

namespace {

constexpr unsigned int width = 3;

// A row is an octal digit, its left pixel worth 4; the top row first.
constexpr std::uint16_t letters[] = {
    025755, 065656, 034443, 065556, 074647, 074644, 034553, 055755, 072227, 011152, 055655, 044447, 057755,
    065555, 025552, 065644, 025531, 065655, 034216, 072222, 055557, 055552, 055775, 055255, 055222, 071247,
};
constexpr std::uint16_t digits[] = {
    075557, 026227, 061247, 061216, 055711, 074616, 034757, 071222, 075757, 075716,
};

std::uint16_t glyphOf(char character)
{
    if (character >= 'A' && character <= 'Z')
        return letters[character - 'A'];
    if (character >= '0' && character <= '9')
        return digits[character - '0'];
    return 0;
}

} // namespace

void PixelFont::write(GreyPicture& picture, unsigned int x, unsigned int y, const std::string& text, std::uint8_t shade)
{
    for (const char character : text) {
        const unsigned int glyph = glyphOf(character);
        for (unsigned int pixel = 0; pixel < width * height; ++pixel) {
            const unsigned int column = x + pixel % width;
            const unsigned int row = y + pixel / width;
            const bool isSet = (glyph >> (width * height - 1 - pixel) & 1) != 0;
            if (isSet && column < picture.getWidth() && row < picture.getHeight())
                picture.set(column, row, shade);
        }
        x += advance;
    }
}

} // namespace Vantor
