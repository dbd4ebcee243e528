#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "libMorvaneHostUsb/UsbMessage.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

namespace Vantor {

// Received buffers on their way from libusb's event handling to the receive
// thread: first in, first out, without a limit, with a kill switch.
//
// Threads: every operation from any thread; one consumer in getMessage.
// Lifetime: no thread may be inside getMessage once the destructor has returned
// from its lock; the manager joins the consumer before.
class UsbMessageQueue {
public:
    UsbMessageQueue();
    ~UsbMessageQueue();

    UsbMessageQueue(const UsbMessageQueue&) = delete;
    UsbMessageQueue& operator=(const UsbMessageQueue&) = delete;

    // Appends and wakes the consumer. A message added after kill is kept, and
    // freed with the queue.
    void addMessage(std::unique_ptr<UsbMessage> message);

    // Messages waiting, those after kill included.
    int size();

    // The oldest message; blocks until there is one. Empty once killed, also while
    // messages wait: those are not handed out. Sees a kill within one second.
    std::unique_ptr<UsbMessage> getMessage();

    // Ends every getMessage, now and later. Takes no lock.
    void kill();

private:
    std::deque<std::unique_ptr<UsbMessage>> m_messages MORVANE_GUARDED_BY(m_mutex);
    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::atomic<bool> m_alive;
};

} // namespace Vantor
