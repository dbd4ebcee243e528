#include "panelctl/demo/DemoPictures.h"

#include "panelctl/demo/PixelFont.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace Vantor::DemoPictures {

namespace {

constexpr std::uint8_t black = GreyPicture::black;
constexpr std::uint8_t white = GreyPicture::white;
constexpr double pi = 3.14159265358979;

std::uint8_t toShade(double value)
{
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
}

// Every pixel from its middle.
GreyPicture paint(unsigned int width, unsigned int height, const std::function<double(double, double)>& shade)
{
    GreyPicture picture(width, height);
    for (unsigned int y = 0; y < height; ++y)
        for (unsigned int x = 0; x < width; ++x)
            picture.set(x, y, toShade(shade(x + 0.5, y + 0.5)));
    return picture;
}

void fill(GreyPicture& picture, unsigned int left, unsigned int top, unsigned int width, unsigned int height,
          std::uint8_t shade)
{
    for (unsigned int y = top; y < top + height; ++y)
        for (unsigned int x = left; x < left + width; ++x)
            picture.set(x, y, shade);
}

void frame(GreyPicture& picture)
{
    const unsigned int width = picture.getWidth();
    const unsigned int height = picture.getHeight();
    fill(picture, 0, 0, width, 1, black);
    fill(picture, 0, height - 1, width, 1, black);
    fill(picture, 0, 0, 1, height, black);
    fill(picture, width - 1, 0, 1, height, black);
}

void line(GreyPicture& picture, double x, double y, double toX, double toY)
{
    const double steps = std::max(1.0, 2 * std::max(std::abs(toX - x), std::abs(toY - y)));
    for (double step = 0; step <= steps; ++step)
        picture.set(static_cast<unsigned int>(x + (toX - x) * step / steps),
                    static_cast<unsigned int>(y + (toY - y) * step / steps), black);
}

void arc(GreyPicture& picture, double x, double y, double radius, double from, double to)
{
    const double step = 0.4 / radius;
    for (double angle = from; angle <= to; angle += step)
        picture.set(static_cast<unsigned int>(x + radius * std::cos(angle)),
                    static_cast<unsigned int>(y + radius * std::sin(angle)), black);
}

void circle(GreyPicture& picture, double x, double y, double radius)
{
    arc(picture, x, y, radius, 0, 2 * pi);
}

// White with a frame and a dark title bar.
GreyPicture makeWindow(unsigned int width, unsigned int height, const std::string& title)
{
    GreyPicture window(width, height);
    frame(window);
    fill(window, 0, 0, width, PixelFont::height + 2, black);
    PixelFont::write(window, 2, 1, title, white);
    return window;
}

// Lit from the upper left; 0 to 1 on the sphere's outline and inside it.
double light(double x, double y)
{
    const double z = std::sqrt(std::max(0.0, 1 - x * x - y * y));
    const double diffuse = std::max(0.0, -0.5 * x - 0.6 * y + 0.62 * z);
    return diffuse + std::pow(diffuse, 24);
}

} // namespace

GreyPicture makeSphere(unsigned int width, unsigned int height)
{
    const double radius = 0.36 * height;
    const double middle = width / 2.0;
    const double horizon = 0.58 * height;
    return paint(width, height, [=](double x, double y) {
        const double dx = (x - middle) / radius;
        const double dy = (y - 0.46 * height) / radius;
        if (dx * dx + dy * dy <= 1)
            return 12 + 185 * light(dx, dy);
        if (y < horizon)
            return 205 - 75 * y / horizon;
        // A floor of tiles, and the sphere's shadow on it.
        const double depth = 0.30 * height / (y - horizon + 1);
        const double shadowX = (x - middle - 0.22 * radius) / radius;
        const double shadowY = (y - 0.86 * height) / (0.24 * radius);
        const bool isDark = (static_cast<int>(std::floor((x - middle) * depth / 8)) +
                             static_cast<int>(std::floor(depth * 3))) % 2 != 0;
        const double tile = isDark ? 60 : 185;
        return shadowX * shadowX + shadowY * shadowY < 1 ? tile * 0.35 : tile;
    });
}

GreyPicture makeTestCard(unsigned int width, unsigned int height)
{
    GreyPicture card(width, height);
    frame(card);
    const double middle = height / 2.0;
    circle(card, middle, middle, middle - 3);
    circle(card, middle, middle, (middle - 3) / 2);
    line(card, 3, middle, height - 3, middle);
    line(card, middle, 3, middle, height - 3);
    // Gratings of 1, 2 and 3 pixels, and squares.
    const unsigned int left = height;
    const unsigned int right = width - 4;
    PixelFont::write(card, left, 4, "TEST CARD", black);
    for (unsigned int x = left; x < right; ++x) {
        const unsigned int third = (x - left) * 3 / (right - left) + 1;
        if ((x - left) / third % 2 == 0)
            fill(card, x, 12, 1, (height - 18) / 2, black);
        for (unsigned int y = 14 + (height - 18) / 2; y < height - 4; ++y)
            if (((x - left) / third + y / third) % 2 == 0)
                card.set(x, y, black);
    }
    return card;
}

GreyPicture makePlasma(unsigned int width, unsigned int height)
{
    return paint(width, height, [=](double x, double y) {
        const double wave = std::sin(x / 6.5) + std::sin(y / 8.5) + std::sin((x + y) / 10.5) +
                            std::sin(std::hypot(x - 0.7 * width, y - 0.3 * height) / 5);
        return 100 + 26 * wave;
    });
}

GreyPicture makeMountains(unsigned int width, unsigned int height)
{
    const double sunX = 0.74 * width;
    const double sunY = 0.3 * height;
    return paint(width, height, [=](double x, double y) {
        const double near = height * (0.80 + 0.10 * std::sin(x / 7) + 0.04 * std::sin(x / 2.3));
        const double middle = height * (0.62 + 0.12 * std::sin(x / 11 + 2) + 0.05 * std::sin(x / 3.1));
        const double far = height * (0.44 + 0.14 * std::sin(x / 13 + 4.4) + 0.05 * std::sin(x / 4));
        if (y > near)
            return 8.0;
        if (y > middle)
            return 62.0;
        if (y > far)
            return 112.0;
        return std::hypot(x - sunX, y - sunY) < 0.17 * height ? 255.0 : 150 + 40 * y / far;
    });
}

GreyPicture makeDesktop(unsigned int width, unsigned int height)
{
    return paint(width, height, [=](double x, double y) { return 40 + 130 * (x / width + y / height) / 2; });
}

GreyPicture makeLevels(unsigned int width, unsigned int height)
{
    GreyPicture window = makeWindow(width, height, "LEVELS");
    unsigned int bar = 0;
    for (unsigned int x = 3; x + 3 < width - 1; x += 4, ++bar) {
        const double level = 0.5 + 0.45 * std::sin(0.9 * bar);
        const auto length = static_cast<unsigned int>(std::lround(level * (height - 11)));
        fill(window, x, height - 2 - length, 3, length, black);
    }
    return window;
}

GreyPicture makeDial(unsigned int width, unsigned int height)
{
    GreyPicture window = makeWindow(width, height, "DIAL 7");
    const double x = width / 2.0;
    const double y = height - 2.5;
    const double radius = std::min(width / 2.0 - 2.5, height - 11.0);
    arc(window, x, y, radius, pi, 2 * pi);
    for (double angle = pi; angle <= 2 * pi; angle += pi / 8)
        line(window, x + (radius - 2) * std::cos(angle), y + (radius - 2) * std::sin(angle),
             x + radius * std::cos(angle), y + radius * std::sin(angle));
    const double pointer = 1.7 * pi;
    line(window, x, y, x + (radius - 3) * std::cos(pointer), y + (radius - 3) * std::sin(pointer));
    return window;
}

} // namespace Vantor::DemoPictures
