#include "demo/PictureScene.h"

#include "demo/DemoFormat.h"
#include "demo/DemoPictures.h"
#include "panelctl/command/Drawing.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Output.h"

#include <chrono>

namespace Vantor::PictureScene {

namespace {

using Clock = Session::Clock;
using Form = LcdPicture::Form;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::chrono::seconds limit{5}; // for each picture
constexpr std::chrono::milliseconds lockTime{200};

// A large LCD and smaller ones; run-demo gives the simulated panels such.
constexpr unsigned int width = 72;
constexpr unsigned int largeHeight = 72;
constexpr unsigned int smallHeight = 36;

struct Picture {
    const char* name;
    const char* dithering;
    LcdHelper::DitherType type;
    Form form;
    std::uint16_t lcd;
    GreyPicture picture;
};

// "0101 LCD 2"
std::string nameLcd(const Panel& panel, std::uint16_t lcd)
{
    return panel.getUidText() + " LCD " + std::to_string(lcd);
}

struct Place {
    std::uint16_t lcd;
    unsigned int x;
    unsigned int y;
};

void append(std::vector<ClientLcdBitmap>& layers, GreyPicture picture, LcdHelper::DitherType type, const Place& place,
            Form form)
{
    picture.dither(type, 128);
    for (const ClientLcdBitmap& layer : picture.makeLayers(place.lcd, place.x, place.y, form))
        layers.push_back(layer);
}

// Milliseconds from its release until it was taken.
double release(Session& session, Drawing& drawing)
{
    const auto start = Clock::now();
    drawing.release();
    drawing.await(session, limit);
    return Milliseconds(Clock::now() - start).count();
}

void draw(Session& session, Output& output, const Panel& panel, const Picture& picture)
{
    std::vector<ClientLcdBitmap> layers;
    append(layers, picture.picture, picture.type, {picture.lcd, 0, 0}, picture.form);
    Drawing drawing(panel, layers);
    drawing.hold();
    const double time = release(session, drawing);
    output.line("   %s: %-9s  %-15s  %-10s  %6s bytes in %.1f ms", nameLcd(panel, picture.lcd).c_str(), picture.name,
                picture.dithering, picture.form == Form::Raw ? "raw" : "run-length",
                formatCount(drawing.getForecast().getBytes()).c_str(), time);
}

// The first layer is covered by the second one before it could leave.
void drawWindows(Session& session, Output& output, const Panel& panel, std::uint16_t lcd)
{
    std::vector<ClientLcdBitmap> layers;
    append(layers, DemoPictures::makeRipples(width, smallHeight), LcdHelper::Threshold, {lcd, 0, 0}, Form::Raw);
    append(layers, DemoPictures::makeDesktop(width, smallHeight), LcdHelper::FloydSteinberg, {lcd, 0, 0}, Form::Raw);
    append(layers, DemoPictures::makeLevels(36, 22), LcdHelper::Threshold, {lcd, 3, 3}, Form::RunLength);
    append(layers, DemoPictures::makeDial(37, 24), LcdHelper::Threshold, {lcd, 31, 10}, Form::Raw);

    Drawing drawing(panel, layers);
    drawing.hold();
    session.waitUntil(Clock::now() + lockTime, lockTime, [] { return false; });
    output.line("   %s: locked; %zu layers drawn, %s bytes have left after %.0f ms", nameLcd(panel, lcd).c_str(),
                layers.size(), formatCount(drawing.getTakenBytes()).c_str(), Milliseconds(lockTime).count());
    const double time = release(session, drawing);
    output.line("   %s: unlocked; all but a covered layer left, %s bytes in %.1f ms", nameLcd(panel, lcd).c_str(),
                formatCount(drawing.getForecast().getBytes()).c_str(), time);
}

} // namespace

void play(Session& session, Output& output)
{
    output.line("6. Pictures for the LCDs, as packed bits (raw) or run-length words");
    const auto drawOn = [&session, &output](const Panel& panel, const Picture& picture) {
        draw(session, output, panel, picture);
    };
    bool isFirst = true;
    for (const Panel& panel : session.getPanels()) {
        if (!panel.isAlive() || !panel.getInformation())
            continue;
        if (isFirst) {
            drawOn(panel,
                   {"planet", "Stucki", LcdHelper::Stucki, Form::Raw, 0, DemoPictures::makePlanet(width, largeHeight)});
            drawOn(panel, {"test card", "threshold", LcdHelper::Threshold, Form::RunLength, 1,
                           DemoPictures::makeTestCard(width, smallHeight)});
            drawWindows(session, output, panel, 2);
        } else {
            drawOn(panel, {"ripples", "Floyd-Steinberg", LcdHelper::FloydSteinberg, Form::RunLength, 0,
                           DemoPictures::makeRipples(width, largeHeight)});
            drawOn(panel, {"mountains", "Atkinson", LcdHelper::Atkinson, Form::Raw, 1,
                           DemoPictures::makeMountains(width, smallHeight)});
        }
        isFirst = false;
    }
}

} // namespace Vantor::PictureScene
