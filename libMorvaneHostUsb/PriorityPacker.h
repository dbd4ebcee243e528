#pragma once

#include "libMorvaneHostUsb/ClientLcdBitmap.h"
#include "libMorvaneHostUsb/Export.h"
#include "libMorvaneHostUsb/PacketQueue.h"
#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "protocol/DeviceInformation.h"
#include "protocol/PacketPacker.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

namespace Vantor {

class DeviceCounters;
struct DeviceStatistics;
class PackerCounts;

// What waits to go out to one panel, and the order in which it goes:
// high-priority records, then all others, then slices of LCD pictures, the LCDs
// in turn. Among records keyed ones come first, then lower types; only records of
// one type keep their order. Obtained from UsbDevice::getPacker.
//
// High-priority types: 6, 8, 10, 11, 12, 24, 29, 31, 34, 35, 37, 40, 41, 44.
//
// Threads: addStructData, addData, hasMoreData and the LCD operations from any
// thread. Those marked "device link" belong to the UsbDevice that owns the packer.
// Adding never waits for the panel: it queues, and starts a transfer on the calling
// thread when none is under way.
// Lifetime: a member of its UsbDevice; hold the device's shared_ptr while using it.
class MORVANE_API PriorityPacker : public PacketPacker {
public:
    // Told of every addition, on the adding thread.
    class MORVANE_API Observer {
    public:
        virtual ~Observer() = default;

        // Called with the packer's observer mutex held: must not call setObserver.
        virtual void onPackerHasChanged() = 0;
    };

    // The layers that wait for one LCD.
    struct ClientLcdBitmapData {
        std::list<ClientLcdBitmap> bitmaps; // oldest first; the front one is being sent
        bool locked = false;                // nothing is sent while set
    };

    // How far the sending has come, by which an application knows when the panel has what it
    // has added: no record waits any more, and then the packet under way has ended, whole.
    struct Progress {
        std::uint64_t waitingRecords = 0;
        std::uint64_t waitingPictures = 0; // the one being sent in slices included
        std::uint64_t endedPackets = 0;    // the panel has taken them, whole or in part
        std::uint64_t cutPackets = 0;      // those taken in part, which are not sent again
        bool isUnderWay = false;           // there is one more, not ended
    };

    // Packets of at most maxPacketSize bytes until a panel reports its own limit.
    explicit PriorityPacker(const unsigned int& maxPacketSize);
    ~PriorityPacker() override;

    // Device link. Empties the packet being built; what waits stays.
    void clearData() override;

    // Queues a record: `size` bytes from `data`, copied before the call returns; a
    // null `data` with a size is ignored. Every record is sent, in order per type.
    // Returns `size`, always. There is no limit on what waits, but a record that
    // cannot fit an empty packet (limit - 11 bytes of payload) is never sent and
    // holds back everything behind it in the order of sending.
    std::size_t addStructData(const void* data, const unsigned int& size, const PacketType& type) override;

    // Keeps one record per type and key: a later write replaces the value that
    // still waits, and a write of at most 63 bytes equal to it is dropped (of types
    // 8, 19, 20 and 24 it replaces that value like any other). A type outside 0 to 46 is ignored.
    // Otherwise as above.
    std::size_t addStructData(const void* data, const unsigned int& size, const PacketType& type,
                              const unsigned int& key) override;

    // Device link. Appends the next rows of a layer of packed pixels; returns the
    // bytes written, or 0 when none fit.
    std::size_t addBitmapDataToPacket(const ClientLcdBitmap& bitmap) override;

    // Device link. The same for a layer of run-length words, which is only ever
    // the first record of a packet.
    std::size_t addBitmapDataToPacketEncoded(const ClientLcdBitmap& bitmap);

    // Adds a copy of `bitmap` as the topmost layer of its LCD; layers that it covers
    // and that still wait are removed. Geometry is not checked. The overloads
    // behave the same.
    void drawBitmapData(const ClientLcdBitmap& bitmap);
    void drawBitmapData(ClientLcdBitmap&& bitmap);

    // Holds an LCD's layers back, and releases them. A flag, not a count.
    void lockLcd(unsigned short lcd);
    void unlockLcd(unsigned short lcd);

    // Composites an LCD's layers into one image and discards it: the layers, and what
    // is sent, stay as they are.
    void flattenLcdImage(unsigned short lcd);

    // Encodes width × height pixels of 32 bits (row-major, bits 24 to 31 are not kept) as
    // run-length words into the buffer of `out`, and sets its x, y and encodedSize. When
    // the words do not fit that buffer, encodedSize becomes 0 and nothing else changes;
    // without pixels, or without a positive width and height, nothing does. The caller
    // makes `out` with the right geometry and a large enough buffer, and sets
    // `encoded`. A run of 255 pixels of 0xFFFFFF reads as a row marker: avoid it.
    static void compressImage(const unsigned int* pixels, int width, int height, int x, int y, ClientLcdBitmap& out);

    // One run-length word: `run` pixels of this value.
    static unsigned int encode(unsigned int pixel, unsigned char run);

    // True while anything waits: a record, or a layer on any LCD, locked ones too.
    bool hasMoreData() const;

    // A copy, of one instant; takes a short lock. Any thread, in any callback.
    Progress getProgress() const;

    // Device link. Takes over the panel's packet limit when it is above 1024.
    void setDeviceInformation(const DeviceInformation& info);

    // Device link. Null turns notification off; blocks while the observer is called.
    void setObserver(Observer* observer);
    void notifyObserver();

    // Device link. Does nothing; called when the device stops waiting for the panel.
    void stopWaiting();

    // Device link. Fills the packet and returns the number of records and slices
    // added; 0 when nothing waits or nothing more fits.
    unsigned int prepareNextPacket();

    // Device link. The same, for a caller that has the time.
    unsigned int prepareNextPacket(std::chrono::system_clock::time_point now);

    // Device link. Empties the packet being built, of which the panel has taken so many bytes
    // by now.
    void finishPacket(std::chrono::system_clock::time_point now, std::uint32_t taken);

    // Device link. Its own counts and the device's, of one instant.
    MORVANE_LOCAL DeviceStatistics readStatistics(const DeviceCounters& counters) const;

    // For PacketQueue, which calls it with m_dataMutex held. 0: the record was not taken.
    std::size_t _addStructData(const PacketType& type, const std::vector<unsigned char>& data);

    // For PacketQueue: so many records of the type have been taken, one after the other.
    void _countPacked(const PacketType& type, unsigned int records);

    // hasMoreData for a caller that holds m_dataMutex.
    bool _hasMoreData() const MORVANE_REQUIRES(m_dataMutex);

private:
    MORVANE_LOCAL PacketQueue& _queueOf(const PacketType& type) MORVANE_REQUIRES(m_dataMutex);
    MORVANE_LOCAL void _drawBitmapData(const ClientLcdBitmap& bitmap);
    MORVANE_LOCAL unsigned int _fillPacket() MORVANE_REQUIRES(m_dataMutex);
    MORVANE_LOCAL unsigned int _packLcdSlices(unsigned int count) MORVANE_REQUIRES(m_dataMutex);
    MORVANE_LOCAL bool _packSlice(ClientLcdBitmapData& lcd) MORVANE_REQUIRES(m_dataMutex);
    MORVANE_LOCAL void _appendSlice(const ClientLcdBitmap& bitmap, PacketType type, unsigned int rows,
                                    std::size_t size);

    PacketQueue m_highPriorityQueue MORVANE_GUARDED_BY(m_dataMutex);
    PacketQueue m_normalQueue MORVANE_GUARDED_BY(m_dataMutex);
    std::map<unsigned short, ClientLcdBitmapData> m_lcdData MORVANE_GUARDED_BY(m_dataMutex);
    std::map<unsigned short, ClientLcdBitmapData>::iterator
        m_nextLcd MORVANE_GUARDED_BY(m_dataMutex);                        // round-robin cursor
    std::set<unsigned int> m_changedLcds MORVANE_GUARDED_BY(m_dataMutex); // drawn and not yet fully packed
    mutable std::mutex m_dataMutex;                                       // also over the base's packet
    std::mutex m_observerMutex;                                           // taken before m_dataMutex, never after
    Observer* m_observer MORVANE_GUARDED_BY(m_observerMutex);
    const std::unique_ptr<PackerCounts> m_counts MORVANE_PT_GUARDED_BY(m_dataMutex);
};

} // namespace Vantor
