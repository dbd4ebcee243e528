#include "demo/PictureScene.h"

#include "demo/DemoFormat.h"
#include "demo/DemoPictures.h"
#include "panelctl/command/Drawing.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Output.h"

#include <chrono>

namespace Vantor {

namespace {

using Clock = Session::Clock;
using Form = PictureLayers::Form;

constexpr std::chrono::seconds limit{5}; // for each picture
constexpr std::chrono::milliseconds lockTime{200};

// A large LCD and smaller ones; run-demo gives the simulated panels such.
constexpr unsigned int width = 72;
constexpr unsigned int largeHeight = 72;
constexpr unsigned int smallHeight = 36;

double millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void append(std::vector<ClientLcdBitmap>& layers, GreyPicture picture, LcdHelper::DitherType type,
            const PictureLayers::Place& place, Form form)
{
    picture.dither(type, 128);
    for (const ClientLcdBitmap& layer : PictureLayers::make(picture, place, form))
        layers.push_back(layer);
}

} // namespace

void PictureScene::play()
{
    m_output.line("6. Pictures for the LCDs, as packed bits (raw) or run-length words");
    bool isFirst = true;
    for (const Panel& panel : m_session.getPanels()) {
        if (!panel.isAlive() || !panel.getInformation())
            continue;
        if (isFirst)
            drawFirst(panel);
        else
            drawSecond(panel);
        isFirst = false;
    }
}

void PictureScene::drawFirst(const Panel& panel)
{
    draw(panel, {"planet", "Stucki", LcdHelper::Stucki, Form::Raw, 0, DemoPictures::makePlanet(width, largeHeight)});
    draw(panel, {"test card", "threshold", LcdHelper::Threshold, Form::RunLength, 1,
                 DemoPictures::makeTestCard(width, smallHeight)});
    drawWindows(panel, 2);
}

void PictureScene::drawSecond(const Panel& panel)
{
    draw(panel, {"ripples", "Floyd-Steinberg", LcdHelper::FloydSteinberg, Form::RunLength, 0,
                 DemoPictures::makeRipples(width, largeHeight)});
    draw(panel,
         {"mountains", "Atkinson", LcdHelper::Atkinson, Form::Raw, 1, DemoPictures::makeMountains(width, smallHeight)});
}

void PictureScene::draw(const Panel& panel, const Picture& picture)
{
    std::vector<ClientLcdBitmap> layers;
    append(layers, picture.picture, picture.type, {picture.lcd, 0, 0}, picture.form);
    Drawing drawing(panel, layers);
    drawing.hold();
    const double time = await(drawing);
    m_output.line("   %s LCD %u: %-9s  %-15s  %-10s  %6s bytes in %.1f ms", panel.getUidText().c_str(),
                  static_cast<unsigned int>(picture.lcd), picture.name, picture.dithering,
                  picture.form == Form::Raw ? "raw" : "run-length",
                  formatCount(drawing.getForecast().getBytes()).c_str(), time);
}

// The first layer is covered by the second one before it could leave.
void PictureScene::drawWindows(const Panel& panel, std::uint16_t lcd)
{
    std::vector<ClientLcdBitmap> layers;
    append(layers, DemoPictures::makeRipples(width, smallHeight), LcdHelper::Threshold, {lcd, 0, 0}, Form::Raw);
    append(layers, DemoPictures::makeDesktop(width, smallHeight), LcdHelper::FloydSteinberg, {lcd, 0, 0}, Form::Raw);
    append(layers, DemoPictures::makeLevels(36, 22), LcdHelper::Threshold, {lcd, 3, 3}, Form::RunLength);
    append(layers, DemoPictures::makeDial(37, 24), LcdHelper::Threshold, {lcd, 31, 10}, Form::Raw);

    Drawing drawing(panel, layers);
    drawing.hold();
    m_session.waitUntil(Clock::now() + lockTime, lockTime, [] { return false; });
    m_output.line("   %s LCD %u: locked; %zu layers drawn, %s bytes have left after %.0f ms",
                  panel.getUidText().c_str(), static_cast<unsigned int>(lcd), layers.size(),
                  formatCount(drawing.getTakenBytes()).c_str(),
                  std::chrono::duration<double, std::milli>(lockTime).count());
    const double time = await(drawing);
    m_output.line("   %s LCD %u: unlocked; all but a covered layer left, %s bytes in %.1f ms",
                  panel.getUidText().c_str(), static_cast<unsigned int>(lcd),
                  formatCount(drawing.getForecast().getBytes()).c_str(), time);
}

// Milliseconds from its release until it was taken.
double PictureScene::await(Drawing& drawing)
{
    const auto start = Clock::now();
    drawing.release();
    drawing.await(m_session, limit);
    return millisecondsSince(start);
}

} // namespace Vantor
