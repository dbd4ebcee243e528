#pragma once

#include "simulator/bus/BusPanel.h"
#include "simulator/bus/PanelBus.h"
#include "simulator/bus/PanelRack.h"
#include "simulator/web/ScreenFeed.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Vantor {

// A bus without a host: what a host would write is written by the test.
class WebBus : public PanelBus {
public:
    using Bytes = std::vector<std::uint8_t>;

    explicit WebBus(BusWatcher& watcher, std::map<std::uint16_t, PanelScreen::Size> lcdSizes = {})
        : m_rack(makeOptions(watcher, std::move(lcdSizes)))
    {}

    void plug(unsigned int panel) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_panels[panel] = std::make_unique<Panel>(m_rack, panel);
    }
    void unplug(unsigned int panel) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_rack.tellUnplug(panel);
        m_panels.at(panel)->act([](PanelModel& model) { model.unplug(); });
    }
    void execute(const PanelOrder& order) override
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_rack.logOrder(order);
        }
        if (PanelRack::plugOrUnplug(*this, order))
            return;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_rack.execute(order);
    }
    bool visit(unsigned int panel, const std::function<void(PanelModel&)>& visitor) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_rack.visit(panel, visitor);
    }
    void setFlash(unsigned int /*panel*/, BootLoader::Flash /*flash*/) override {}
    void schedule(std::chrono::nanoseconds /*delay*/, const PanelOrder& /*order*/) override {}
    std::vector<TimedOrder> takePending() override { return {}; }
    std::vector<std::string> getViolations() const override { return {}; }

    // One transfer.
    void write(unsigned int panel, Bytes bytes)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_panels.at(panel)->write(std::move(bytes));
    }

    // A packet with one record: size, count and id, then type and size, low bytes first.
    void send(unsigned int panel, std::uint8_t type, const Bytes& payload)
    {
        const std::size_t size = 8 + 3 + payload.size();
        Bytes packet{static_cast<std::uint8_t>(size),
                     static_cast<std::uint8_t>(size >> 8),
                     1,
                     0,
                     0,
                     0,
                     0,
                     0,
                     type,
                     static_cast<std::uint8_t>(payload.size()),
                     static_cast<std::uint8_t>(payload.size() >> 8)};
        packet.insert(packet.end(), payload.begin(), payload.end());
        write(panel, std::move(packet));
    }

    // A slice of 1 bit per pixel: LCD, column, row, width, rows, depth, pixels.
    void draw(unsigned int panel, std::uint8_t lcd, std::uint8_t x, std::uint8_t y, std::uint8_t width,
              std::uint8_t rows, const Bytes& bits)
    {
        Bytes slice{lcd, 0, x, y, width, rows, 1};
        slice.insert(slice.end(), bits.begin(), bits.end());
        send(panel, 38, slice);
    }

    ScreenFeed::UseBus getUse()
    {
        return [this](const std::function<void(PanelBus&)>& use) {
            use(*this);
            return true;
        };
    }

private:
    class Panel : public BusPanel {
    public:
        Panel(PanelRack& rack, unsigned int number) : BusPanel(rack, number) {}
        bool isPlugged() const override { return !getModel().isUnplugged(); }
        void write(Bytes bytes)
        {
            act([this, &bytes](PanelModel& model) { model.submitOut(this, 1, std::move(bytes), true); });
        }

    private:
        void handOn(PanelModel& model) override { model.takeCompletions(); }
    };

    static Options makeOptions(BusWatcher& watcher, std::map<std::uint16_t, PanelScreen::Size> lcdSizes)
    {
        Options options;
        options.panel.lcdSizes = std::move(lcdSizes);
        options.watcher = &watcher;
        return options;
    }

    std::mutex m_mutex;
    PanelRack m_rack;
    std::map<unsigned int, std::unique_ptr<Panel>> m_panels;
};

} // namespace Vantor
