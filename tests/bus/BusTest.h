#pragma once

#include "simulator/usbfs/ClientProcess.h"
#include "simulator/usbfs/UsbfsBus.h"
#include "tests/bus/LineReader.h"
#include "tests/support/Bytes.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Vantor {

// A bus in this process and a BusClient on it, with libusb's own log at its most
// talkative. At the end the client must leave with code 0, no panel may have seen a
// violation, and neither the library (above its summaries) nor libusb may have said
// anything that the test did not expect.
class BusTest : public testing::Test {
public:
    // For what comes by itself, on a loaded machine.
    static constexpr std::chrono::seconds patience{20};

    static bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = patience);

protected:
    void useClient(const std::string& program); // instead of the ordinary one
    void makeBus(UsbfsBus::Options options = {});
    void startClient();
    void startClientWithPanel(); // bus and panel 0, added
    void signalClient(int number);
    void endClient(); // waits for it
    void SetUp() override;
    void TearDown() override;

    UsbfsBus& bus() { return *m_bus; }
    void execute(const std::string& command); // in the simulator's language

    // To the client.
    void tell(const std::string& command);

    // Waits for the line and takes it out.
    void expectEvent(const std::string& event);
    void expectLog(const std::string& line);

    // Matching lines of the library are in order, and as many as there are.
    void allowLog(const std::string& pattern);
    // What the library says of a panel that is pulled depends on what it notices first: that
    // its transfers end, that the device has left, or that one in the registry is dead.
    void allowLogOfDeparture();

    // The same for lines of libusb.
    void allowLibusb(const std::string& pattern);

    // A line of the bus, or a part of it.
    void awaitBusLog(const std::string& text);

    // What the client was told so far and no expectEvent took out, of this kind.
    std::vector<std::string> eventsOf(const std::string& firstWord) const;

    // Records of one type that the panel has received, when there are `count` of them.
    std::vector<PanelModel::Record> awaitRecords(unsigned int panel, int type, std::size_t count);
    std::vector<PanelModel::Record> recordsOf(unsigned int panel, int type);

    // Exactly the records 0 to count - 1 of TestRecord.h, in order, and no more.
    void expectRecords(unsigned int panel, int type, std::size_t size, std::size_t count);

private:
    void checkLogs();
    void describeRun();

    std::string m_program = MORVANE_BUS_CLIENT;

    std::unique_ptr<UsbfsBus> m_bus;
    std::unique_ptr<ClientProcess> m_client;
    int m_commands = -1; // the client's input
    std::unique_ptr<LineReader> m_events;
    std::unique_ptr<LineReader> m_log;
    std::unique_ptr<LineReader> m_errors; // libusb's and a sanitizer's
    std::vector<std::string> m_allowedLog;
    std::vector<std::string> m_allowedLibusb;

    std::mutex m_busLogMutex;
    std::vector<std::string> m_busLog;
};

// "packet UID TYPE HEX" for the record `number` of TestRecord.h.
std::string packetEvent(const std::string& uid, int type, const Bytes& payload);

} // namespace Vantor
