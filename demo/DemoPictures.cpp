#include "demo/DemoPictures.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <string>

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
    const int steps = 1 + static_cast<int>(2 * std::max(std::abs(toX - x), std::abs(toY - y)));
    for (int step = 0; step <= steps; ++step)
        picture.set(static_cast<unsigned int>(x + (toX - x) * step / steps),
                    static_cast<unsigned int>(y + (toY - y) * step / steps), black);
}

void arc(GreyPicture& picture, double x, double y, double radius, double from, double to)
{
    const int steps = 1 + static_cast<int>((to - from) * radius / 0.4);
    for (int step = 0; step <= steps; ++step) {
        const double angle = from + (to - from) * step / steps;
        picture.set(static_cast<unsigned int>(x + radius * std::cos(angle)),
                    static_cast<unsigned int>(y + radius * std::sin(angle)), black);
    }
}

void circle(GreyPicture& picture, double x, double y, double radius)
{
    arc(picture, x, y, radius, 0, 2 * pi);
}

constexpr unsigned int letterHeight = 5;

void write(GreyPicture& picture, unsigned int x, unsigned int y, const std::string& text, std::uint8_t shade)
{
    // Of 3 × 5 pixels, those that are needed. A row is an octal digit, its left pixel worth 4;
    // the top row first.
    static const std::map<char, unsigned int> letters = {
        {' ', 0},      {'7', 071222}, {'A', 025755}, {'C', 034443}, {'D', 065556}, {'E', 074647},
        {'I', 072227}, {'L', 044447}, {'R', 065655}, {'S', 034216}, {'T', 072222}, {'V', 055552},
    };
    for (const char character : text) {
        for (unsigned int pixel = 0; pixel < 3 * letterHeight; ++pixel)
            if ((letters.at(character) >> (3 * letterHeight - 1 - pixel) & 1) != 0)
                picture.set(x + pixel % 3, y + pixel / 3, shade);
        x += 4;
    }
}

// White with a frame and a dark title bar.
GreyPicture makeWindow(unsigned int width, unsigned int height, const std::string& title)
{
    GreyPicture window(width, height);
    frame(window);
    fill(window, 0, 0, width, letterHeight + 2, black);
    write(window, 2, 1, title, white);
    return window;
}

// A sphere lit from the upper left: 0 to 1 at (x, y) inside the unit circle.
double light(double x, double y)
{
    const double z = std::sqrt(std::max(0.0, 1 - x * x - y * y));
    return std::max(0.0, -0.5 * x - 0.22 * y + 0.84 * z);
}

// Stars on black, always the same ones.
GreyPicture makeSky(unsigned int width, unsigned int height)
{
    GreyPicture sky(width, height, black);
    std::uint32_t state = 7;
    for (unsigned int star = 0; star < width * height / 130; ++star) {
        state = state * 1664525 + 1013904223;
        sky.set((state >> 8) % width, (state >> 20) % height, white);
    }
    return sky;
}

} // namespace

GreyPicture makePlanet(unsigned int width, unsigned int height)
{
    const GreyPicture sky = makeSky(width, height);
    const double radius = 0.27 * width;
    return paint(width, height, [&sky, radius, width, height](double x, double y) {
        // Seen in a frame that is tilted with the ring.
        const double across = ((x - width / 2.0) * 0.94 + (y - height / 2.0) * -0.34) / radius;
        const double down = ((x - width / 2.0) * 0.34 + (y - height / 2.0) * 0.94) / radius;
        const double ring = std::hypot(across, down / 0.26);
        const double ball = std::hypot(across, down);
        const bool isRing = ring > 1.28 && ring < 1.82 && std::abs(ring - 1.58) > 0.04;
        if (isRing && (down > 0 || ball > 1))
            return ring < 1.58 ? 170.0 : 240.0;
        if (ball <= 1 && !(down > 0 && ring > 1.14 && ring < 2.04)) {
            const double bands = 1 - 0.2 * (std::sin(down * 11 + 0.4) > 0.2 ? 1 : 0);
            return 10 + 200 * bands * light((x - width / 2.0) / radius, (y - height / 2.0) / radius);
        }
        return 1.0 * sky.get(static_cast<unsigned int>(x), static_cast<unsigned int>(y)) * (ball > 1.08 ? 1 : 0);
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
    const unsigned int left = height - 1;
    const unsigned int right = width - 4;
    write(card, left, 4, "TEST CARD", black);
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

GreyPicture makeRipples(unsigned int width, unsigned int height)
{
    return paint(width, height, [=](double x, double y) {
        const double first = std::hypot(x - 0.27 * width, y - 0.3 * height);
        const double second = std::hypot(x - 0.78 * width, y - 0.72 * height);
        return 108 + 50 * (std::cos(first / 2.6) + std::cos(second / 2.6));
    });
}

GreyPicture makeMountains(unsigned int width, unsigned int height)
{
    const double sunRadius = 0.19 * height;
    return paint(width, height, [=](double x, double y) {
        const double near = height * (0.84 + 0.09 * std::sin(x / 7) + 0.03 * std::sin(x / 2.3));
        const double middle = height * (0.66 + 0.13 * std::sin(x / 9 + 2) + 0.04 * std::sin(x / 3.1));
        const double far = height * (0.50 + 0.17 * std::sin(x / 10 + 4.6) + 0.05 * std::sin(x / 4));
        const double sun = std::hypot(x - 0.72 * width, y - 0.31 * height) - sunRadius;
        if (y > near)
            return 0.0;
        if (y > middle)
            return 48.0;
        if (y > far)
            return 104.0;
        if (sun < 1)
            return sun < 0 ? 236.0 : 0.0;
        return 176 + 30 * y / height;
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
    for (int tick = 0; tick <= 8; ++tick) {
        const double angle = pi + tick * pi / 8;
        line(window, x + (radius - 2) * std::cos(angle), y + (radius - 2) * std::sin(angle),
             x + radius * std::cos(angle), y + radius * std::sin(angle));
    }
    const double pointer = 1.7 * pi;
    line(window, x, y, x + (radius - 3) * std::cos(pointer), y + (radius - 3) * std::sin(pointer));
    return window;
}

} // namespace Vantor::DemoPictures
