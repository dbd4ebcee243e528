#include "tests/support/RecordingObserver.h"

#include <cstdio>
#include <utility>

#include <pthread.h>

namespace Vantor::Test {

namespace {

std::string hexDigits(unsigned int value)
{
    char text[16];
    std::snprintf(text, sizeof text, "%x", value);
    return text;
}

} // namespace

void RecordingObserver::write(const std::string& kind, const std::string& rest)
{
    char name[32] = "";
    pthread_getname_np(pthread_self(), name, sizeof name);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(kind + " " + rest);
    m_threads[kind] = name;
}

void RecordingObserver::onDeviceAdded(std::uint16_t uid)
{
    write("added", hexDigits(uid));
    if (whenAdded)
        whenAdded(uid);
}

void RecordingObserver::onDeviceRemoved(std::uint16_t uid)
{
    write("removed", hexDigits(uid));
    if (whenRemoved)
        whenRemoved(uid);
}

void RecordingObserver::onReserved(std::uint16_t uid)
{
    write("reserved", hexDigits(uid));
}

void RecordingObserver::onMessageBegin(std::uint16_t deviceId, const UsbMessage& message)
{
    write("begin", hexDigits(deviceId) + " " + std::to_string(message.size) + " bytes");
    if (whenBegun)
        whenBegun(deviceId, message);
}

void RecordingObserver::onMessageEnd(std::uint16_t deviceId)
{
    write("end", hexDigits(deviceId));
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_messages;
    m_ended.notify_all();
}

void RecordingObserver::onParsedPacket(std::uint16_t deviceId, const PacketType& type, const DataPacketUnion& data,
                                       unsigned int length)
{
    std::string text = hexDigits(deviceId) + " type " + std::to_string(static_cast<int>(type)) + ":";
    for (unsigned int i = 0; i < length; ++i)
        text += " " + hexDigits(payloadOf(data)[i]);
    write("parsed", text);
    if (whenParsed)
        whenParsed(deviceId);
}

std::vector<std::string> RecordingObserver::take()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_lines, {});
}

void RecordingObserver::waitForMessages(std::size_t count)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_ended.wait(lock, [this, count] { return m_messages >= count; });
    m_messages -= count;
}

std::string RecordingObserver::threadOf(const std::string& kind)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_threads[kind];
}

} // namespace Vantor::Test
