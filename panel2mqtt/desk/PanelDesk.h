#pragma once

#include "panel2mqtt/desk/Ledger.h"
#include "panel2mqtt/desk/Order.h"
#include "panel2mqtt/desk/PanelLine.h"
#include "panel2mqtt/desk/PictureOrder.h"
#include "panel2mqtt/desk/WishBook.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// What waits for the panel of one place, and what has become of it.
//
// Little is given to the library at a time: a batch of records, a picture for each LCD. Only
// when the panel has taken one comes the next, so that what waits here can still expire, be
// superseded or be counted against the bounds.
//
// Threads: the desk's. Lifetime: its place's.
class PanelDesk {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;

    static constexpr std::size_t mostRecords = 256;
    static constexpr std::size_t mostBytes = 1u << 20;
    static constexpr std::size_t batchRecords = 64;
    static constexpr std::size_t mostPictures = 256; // LCDs for which one waits
    static constexpr std::size_t mostPictureBytes = 8u << 20;
    static constexpr std::size_t mostPictureCommands = 4096; // of which pictures are held
    static constexpr unsigned int wishedPicturesAtOnce = 8;

    // `wait`: how long a command waits at the most.
    PanelDesk(std::string place, const WishBook& wishes, Duration wait, Ledger::Reply reply);

    // The panel is there and has said what it takes. Wishes are refreshed apart.
    void arrive(std::shared_ptr<PanelLine> line, TimePoint now);
    void leave(TimePoint now);
    bool isThere() const { return m_line != nullptr; }

    // A record or a picture.
    void add(const Order& order, Message command, TimePoint now);

    // All wishes may be others, or one.
    void refreshWishes(TimePoint now);
    void refreshWish(const Order::Subject& subject, TimePoint now);

    // Something may have been taken, or it is getNextDue.
    void poll(TimePoint now);

    // When something expires; in the past when there is something to do now, TimePoint::max()
    // when nothing waits.
    TimePoint getNextDue() const;

    // For the counts.
    struct Counts {
        std::uint64_t taken = 0;
        std::uint64_t busy = 0;
        std::uint64_t expired = 0;
        std::uint64_t waiting = 0; // records and pictures, now
    };
    Counts getCounts() const;
    std::size_t getWaitingRecords() const { return m_records.size(); }

private:
    // Somebody who is to be answered, or a wish that is to be applied.
    struct Claim {
        std::uint64_t ticket = 0; // 0: a wish
        TimePoint deadline = TimePoint::max();
        std::optional<Order::Subject> wish;
        std::uint64_t serial = 0; // of the wish
    };
    struct Record {
        Claim claim;
        std::uint8_t type = 0;
        std::optional<std::uint32_t> key;
        std::string payload;

        Order::Subject getSubject() const { return {Order::Verb::Set, type, key.value_or(0)}; }
    };
    struct Waiting {
        PictureOrder::Picture picture;
        std::vector<Claim> claims;
        bool hidesWish = false; // one that the panel has not had
    };
    // Given to the library, and not ended.
    struct Flight {
        std::vector<Claim> claims;
        std::optional<std::uint64_t> lastPacket; // that may have some of it
        std::uint64_t cutPackets = 0;            // before it
        bool isUp = false;
    };

    void addRecord(const Order& order, Message command, const Claim& claim, TimePoint now);
    void addPicture(const Order& order, const Message& command, const Claim& claim, TimePoint now);
    void placePicture(std::uint16_t lcd, PictureOrder::Picture picture, const Claim& claim, TimePoint now);
    std::size_t countPictureCommands() const;
    bool refuseTooLarge(std::size_t size, const Claim& claim, TimePoint now);

    void startRecords(TimePoint now);
    void startPictures(TimePoint now);
    std::vector<Record> takeBatch(TimePoint now);
    bool mayFollow(const std::vector<Record>& batch, const Record& next) const;
    void takeWishedRecords(std::vector<Record>& batch, std::size_t& room);
    void gatherWishedPictures();
    Claim claimOf(const Order::Subject& subject, const WishBook::Wish& wish);
    void want(const Order::Subject& subject, TimePoint now);
    void supersede(const Order::Subject& subject, TimePoint now);
    bool overrideWish(const Order::Subject& subject);
    void land(Flight& flight, std::uint64_t PriorityPacker::Progress::*waiting, TimePoint now);

    void expire(TimePoint now);
    void expirePictures(TimePoint now);
    void expireFlight(Flight& flight, TimePoint now);
    void end(const Claim& claim, const Answer& answer, bool isRemembered, TimePoint now);
    void endAll(const std::vector<Claim>& claims, const Answer& answer, bool isRemembered, TimePoint now);

    const std::string m_place;
    const WishBook& m_wishes;
    const Duration m_wait;
    const Ledger::Reply m_reply;
    Ledger m_ledger;
    std::shared_ptr<PanelLine> m_line; // null: no panel

    std::deque<Record> m_records;
    std::size_t m_bytes = 0; // of m_records
    std::map<std::uint16_t, Waiting> m_pictures;
    std::size_t m_pictureBytes = 0; // of m_pictures
    Flight m_recordFlight;
    Flight m_pictureFlight;

    // Serials of wishes: of those that are to be applied, older than whatever waits for the same
    // thing; and of those that have been given to this panel.
    std::map<Order::Subject, std::uint64_t> m_wanted;
    std::map<Order::Subject, std::uint64_t> m_applied;
    Counts m_counts;
};

} // namespace Vantor
