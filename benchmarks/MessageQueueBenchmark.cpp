// Messages handed from one thread to another, beside a plain deque with a mutex and a
// condition. Items are messages; each iteration hands over a batch of them, or one while
// as many wait as the argument says.

#include "libMorvaneHostUsb/UsbMessageQueue.h"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include <benchmark/benchmark.h>

namespace Vantor {
namespace {

constexpr int batch = 20000;

class PlainQueue {
public:
    void addMessage(std::unique_ptr<UsbMessage> message)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_messages.push_back(std::move(message));
        m_condition.notify_one();
    }

    std::unique_ptr<UsbMessage> getMessage()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_condition.wait(lock, [this] { return !m_messages.empty(); });
        std::unique_ptr<UsbMessage> message = std::move(m_messages.front());
        m_messages.pop_front();
        return message;
    }

private:
    std::deque<std::unique_ptr<UsbMessage>> m_messages;
    std::mutex m_mutex;
    std::condition_variable m_condition;
};

std::unique_ptr<UsbMessage> makeMessage()
{
    return std::make_unique<UsbMessage>(1, static_cast<unsigned short>(512));
}

template <typename Queue> void handOver(benchmark::State& state)
{
    Queue queue;
    for ([[maybe_unused]] auto _ : state) {
        std::thread producer([&queue] {
            for (int i = 0; i < batch; ++i)
                queue.addMessage(makeMessage());
        });
        for (int i = 0; i < batch; ++i)
            benchmark::DoNotOptimize(queue.getMessage());
        producer.join();
    }
    state.SetItemsProcessed(state.iterations() * batch);
}

template <typename Queue> void addAndGet(benchmark::State& state)
{
    Queue queue;
    for (std::int64_t i = 0; i < state.range(0); ++i)
        queue.addMessage(makeMessage());
    for ([[maybe_unused]] auto _ : state) {
        queue.addMessage(makeMessage());
        benchmark::DoNotOptimize(queue.getMessage());
    }
    state.SetItemsProcessed(state.iterations());
}

// The message alone.
void makeAndFree(benchmark::State& state)
{
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(makeMessage());
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(makeAndFree);
BENCHMARK_TEMPLATE(handOver, PlainQueue)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(handOver, UsbMessageQueue)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(addAndGet, PlainQueue)->Arg(0)->Arg(10)->Arg(1000)->Arg(1000000);
BENCHMARK_TEMPLATE(addAndGet, UsbMessageQueue)->Arg(0)->Arg(10)->Arg(1000)->Arg(1000000);

} // namespace
} // namespace Vantor
