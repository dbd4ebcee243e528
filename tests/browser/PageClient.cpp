// The application of the browser's tests: draws on all panels as the lines on its standard
// input say, and reports on standard output.
//
//   draw LCD DEPTH SEED      a picture of 48 x 40 pixels at 8,16, of 1 or 24 bits a pixel: "drawn",
//                            when the panels have taken it
//   runs LCD SEED            the same in black and white as run-length words: "drawn"
//   animate LCDS MILLISECONDS  draws pictures of 144 x 168 on so many LCDs, again and again: "animated"
//   rest                     no more of them, and the last has been taken: "rested"
//   send TYPE SIZE           a record, its bytes "page" over and over: "sent"
//   exit, or the end of the input
//
// And of its own accord: "added UID", "removed UID", hexadecimal.
#include "libMorvaneHostUsb/LcdPicture.h"
#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/UsbManager.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using namespace Vantor;

namespace {

void report(const char* format, unsigned int number = 0)
{
    std::printf(format, number);
    std::fflush(stdout);
}

class Reporter : public UsbManager::Observer {
public:
    void onDeviceAdded(std::uint16_t uid) override { report("added %x\n", uid); }
    void onDeviceRemoved(std::uint16_t uid) override { report("removed %x\n", uid); }
    void onMessageBegin(std::uint16_t /*uid*/, const UsbMessage& /*message*/) override {}
    void onMessageEnd(std::uint16_t /*uid*/) override {}
    void onParsedPacket(std::uint16_t /*uid*/, const PacketType& /*type*/, const DataPacketUnion& /*data*/,
                        unsigned int /*length*/) override
    {}
};

// Grey pixels, no two rows or columns alike.
std::vector<unsigned char> makePixels(unsigned int width, unsigned int height, unsigned int seed)
{
    std::vector<unsigned char> pixels;
    for (unsigned int y = 0; y < height; ++y)
        for (unsigned int x = 0; x < width; ++x)
            pixels.push_back((x * x + 3 * y * y + x * y + 37 * seed) / 16 % 3 == 0 ? 0 : 255);
    return pixels;
}

std::vector<ClientLcdBitmap> makeBlackAndWhite(std::uint16_t lcd, unsigned int seed, LcdPicture::Form form)
{
    constexpr unsigned int width = 48;
    constexpr unsigned int height = 40;
    const std::vector<unsigned char> pixels = makePixels(width, height, seed);
    LcdPicture picture(pixels.data(), width, height, BitmapImage::Gray8);
    picture.dither = LcdHelper::Threshold;
    picture.form = form;
    return picture.makeLayers(lcd, 8, 16);
}

std::vector<ClientLcdBitmap> makeColours(std::uint16_t lcd, unsigned int seed)
{
    ClientLcdBitmap layer(48, 40, 24);
    layer.lcd = lcd;
    layer.x = 8;
    layer.y = 16;
    for (std::size_t i = 0; i < layer.buffer.size(); ++i)
        layer.buffer[i] = static_cast<unsigned char>(i * 7 + i / 144 * 3 + seed);
    return {layer};
}

class Application {
public:
    Application()
    {
        m_manager->registerObserver(&m_reporter);
        m_manager->initialise();
    }

    ~Application()
    {
        stop();
        UsbManager::destroyUsbManager();
    }

    // False when it is time to go.
    bool obey(const std::string& line)
    {
        std::istringstream words(line);
        std::string command;
        words >> command;
        const std::map<std::string, void (Application::*)(std::istringstream&)> commands{
            {"draw", &Application::draw}, {"runs", &Application::drawRuns}, {"animate", &Application::animate},
            {"rest", &Application::rest}, {"send", &Application::send},
        };
        const auto found = commands.find(command);
        if (found != commands.end())
            (this->*found->second)(words);
        return found != commands.end();
    }

private:
    void onEach(const std::function<void(const std::shared_ptr<UsbDevice>&)>& work) const
    {
        for (const auto& device : m_manager->getDeviceListSafe())
            work(device);
    }

    void drawLayer(const std::shared_ptr<UsbDevice>& device, const ClientLcdBitmap& layer)
    {
        device->getPacker().drawBitmapData(layer);
        ++m_drawn[device];
    }

    // An empty packer is not enough: its last packet may still be under way.
    void waitUntilTaken()
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        onEach([this, end](const std::shared_ptr<UsbDevice>& device) {
            const auto isTaken = [this, &device] {
                const SendStatistics sent = device->getStatistics().sent;
                return sent.pictures + sent.coveredPictures >= m_drawn[device];
            };
            while (!isTaken() && std::chrono::steady_clock::now() < end)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        });
    }

    void drawLayers(const std::vector<ClientLcdBitmap>& layers)
    {
        onEach([this, &layers](const std::shared_ptr<UsbDevice>& device) {
            for (const ClientLcdBitmap& layer : layers)
                drawLayer(device, layer);
        });
        waitUntilTaken();
        report("drawn\n");
    }

    void draw(std::istringstream& words)
    {
        std::uint16_t lcd = 0;
        unsigned int depth = 0;
        unsigned int seed = 0;
        words >> lcd >> depth >> seed;
        drawLayers(depth == 1 ? makeBlackAndWhite(lcd, seed, LcdPicture::Form::Raw) : makeColours(lcd, seed));
    }

    void drawRuns(std::istringstream& words)
    {
        std::uint16_t lcd = 0;
        unsigned int seed = 0;
        words >> lcd >> seed;
        drawLayers(makeBlackAndWhite(lcd, seed, LcdPicture::Form::RunLength));
    }

    void animate(std::istringstream& words)
    {
        std::uint16_t lcds = 0;
        unsigned int milliseconds = 0;
        words >> lcds >> milliseconds;
        stop();
        m_isMoving = true;
        m_mover = std::thread([this, lcds, milliseconds] {
            for (unsigned int number = 0; m_isMoving; ++number) {
                move(lcds, number);
                std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
            }
        });
        report("animated\n");
    }

    // Whole rows of one colour: cheap to make, and each picture differs from the one before.
    void move(std::uint16_t lcds, unsigned int number)
    {
        ClientLcdBitmap layer(144, 168, 1);
        for (std::size_t i = 0; i < layer.buffer.size(); ++i)
            layer.buffer[i] = (i / 18 + number) % 16 < 8 ? 0xFF : 0;
        onEach([this, &layer, lcds](const std::shared_ptr<UsbDevice>& device) {
            for (layer.lcd = 0; layer.lcd < lcds; ++layer.lcd)
                drawLayer(device, layer);
        });
    }

    void rest(std::istringstream& /*words*/)
    {
        stop();
        waitUntilTaken();
        report("rested\n");
    }

    void stop()
    {
        m_isMoving = false;
        if (m_mover.joinable())
            m_mover.join();
    }

    void send(std::istringstream& words)
    {
        int type = 0;
        unsigned int size = 0;
        words >> type >> size;
        std::string bytes;
        while (bytes.size() < size)
            bytes += "page";
        onEach([&bytes, type, size](const std::shared_ptr<UsbDevice>& device) {
            device->getPacker().addStructData(bytes.data(), size, static_cast<PacketType>(type));
            device->sync(5);
        });
        report("sent\n");
    }

    UsbManager* m_manager = UsbManager::getUsbManager();
    Reporter m_reporter;
    // Layers by device, as its own counts are; of one thread at a time, the mover's or that which joins it.
    std::map<std::weak_ptr<UsbDevice>, std::uint64_t, std::owner_less<>> m_drawn;
    std::atomic<bool> m_isMoving{false};
    std::thread m_mover;
};

} // namespace

int main()
{
    setLogLevel(LogLevel::Error);
    Application application;
    std::string line;
    while (std::getline(std::cin, line) && application.obey(line)) {
    }
}
