#pragma once

#include "panel2mqtt/desk/PanelLine.h"

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// A panel that takes packets when told, in whole or in part, and the packer before it: keyed
// records first, then by type; one packet under way at a time, filled when the one before has
// ended.
class FakeLine : public PanelLine {
public:
    struct Record {
        std::uint8_t type;
        std::optional<std::uint32_t> key;
        std::string payload;
    };
    struct Picture {
        std::uint16_t lcd;
        std::vector<ClientLcdBitmap> layers;
    };

    explicit FakeLine(unsigned int limit = 1024) : m_limit(limit) {}

    void addRecord(std::uint8_t type, std::optional<std::uint32_t> key, const std::string& payload) override;
    void draw(std::uint16_t lcd, std::vector<ClientLcdBitmap> layers) override;
    PriorityPacker::Progress getProgress() const override;
    unsigned int getPacketLimit() const override { return m_limit; }
    void startUpgrade(const std::string& /*mainPath*/, const std::string& /*servoPath*/) override {}
    Upgrade getUpgrade() const override { return {}; }
    void askInformation() override {}

    // The packet under way ends; false when there is none.
    bool take();
    // The panel has it in part.
    bool cut();
    void takeAll();
    void setPacketLimit(unsigned int limit) { m_limit = limit; }
    // Pictures that go out one slice a packet, so many for each.
    void setSlices(unsigned int slices) { m_slices = slices; }

    std::vector<std::string> getTaken() const; // payloads
    const std::vector<Record>& getRecords() const { return m_taken; }
    const std::vector<Picture>& getPictures() const { return m_drawn; }
    void forget() { m_taken.clear(); }
    std::size_t getAdded() const { return m_added; }

private:
    struct Drawing {
        Picture picture;
        unsigned int slicesLeft;
    };
    struct Packet {
        std::vector<Record> records;
        std::vector<Picture> pictures; // whose last slice it has
        bool isUnderWay = false;
    };

    void fill();
    bool end(bool isWhole);

    unsigned int m_limit;
    unsigned int m_slices = 1;
    std::list<Record> m_waiting;
    std::list<Drawing> m_drawings;
    Packet m_packet;
    std::uint64_t m_ended = 0;
    std::uint64_t m_cut = 0;
    std::size_t m_added = 0;
    std::vector<Record> m_taken;
    std::vector<Picture> m_drawn;
};

} // namespace Vantor
