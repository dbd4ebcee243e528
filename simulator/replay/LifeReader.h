#pragma once

#include "simulator/capture/CapturedUrb.h"
#include "simulator/replay/RecordedSession.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Vantor {

// Makes a RecordedSession::Life of the frames of one device: puts transfers together from
// their URBs, and takes the host's apart into records. Believes nothing of a frame.
//
// Threads: one at a time.
class LifeReader {
public:
    // `zero` is what times are counted from, but those of frames, from `captureBegin`.
    LifeReader(std::chrono::nanoseconds begin, std::chrono::nanoseconds zero, std::chrono::nanoseconds captureBegin);

    // The next frame; those of other endpoints than 0 and a panel's two are of no account.
    void add(const CapturedUrb& urb, std::size_t frame);

    // Nothing comes after these.
    // Its descriptors are as PanelModel needs them, or none; a configuration that is not in
    // the capture is the simulated panel's.
    RecordedSession::Life takeLife();
    std::vector<std::string> takeNotes(); // without the panel

    bool isOpen() const { return !m_life.isLeft && (!m_reads.empty() || !m_writes.empty()); }
    bool isSplit() const { return m_isSplit; } // see RecordedSession
    const std::string& getMissingFromPanel() const { return m_missingFromPanel; }
    const std::string& getMissingFromHost() const { return m_missingFromHost; }

private:
    // A transfer to the panel.
    struct Write {
        std::map<std::uint64_t, std::uint32_t> urbs; // that are not complete, with their lengths
        std::vector<std::uint8_t> bytes;
        std::size_t taken = 0;  // of them, by the panel
        bool isEnded = false;   // no URB follows
        bool isMissing = false; // bytes of it are not in the capture
        std::chrono::nanoseconds time{0};
        std::size_t frame = 0; // of the last URB's submission
        std::chrono::nanoseconds frameTime{0};
    };
    using Writes = std::list<Write>;

    void addControl(const CapturedUrb& urb);
    void keepDescriptor(std::uint8_t kind, std::uint8_t index, const std::vector<std::uint8_t>& bytes);
    void addRead(const CapturedUrb& urb);
    void addWrite(const CapturedUrb& urb);
    void submitWrite(const CapturedUrb& urb);
    void completeWrite(Writes::iterator write, const CapturedUrb& urb);
    void breakOff(Writes::iterator write);
    void takeWrite(const Write& write);
    void step(PanelScript::Deed deed, bool meetsRead);
    void note(const std::string& text) { note(m_frame, text); }
    void note(std::size_t frame, const std::string& text);

    const std::chrono::nanoseconds m_zero;
    const std::chrono::nanoseconds m_captureBegin;
    RecordedSession::Life m_life;
    std::vector<std::string> m_notes;
    std::string m_missingFromPanel;
    std::string m_missingFromHost;

    bool m_isSplit = false;
    bool m_isBegun = false;  // there was a transfer
    std::size_t m_frame = 0; // that is being looked at
    std::chrono::nanoseconds m_time{0};
    std::map<std::uint64_t, std::array<std::uint8_t, CapturedUrb::setupSize>> m_setups; // by URB
    std::vector<std::uint8_t> m_device;                                                 // descriptors
    std::vector<std::uint8_t> m_configuration;
    std::set<std::uint64_t> m_reads;     // that wait, by URB
    std::set<std::uint64_t> m_brokenOff; // URBs of writes that have failed
    Writes m_writes;                     // in order; the last may not be ended
};

} // namespace Vantor
