#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "panel2mqtt/broker/BrokerLink.h"
#include "panel2mqtt/broker/WakeUp.h"
#include "panel2mqtt/desk/Answer.h"
#include "panelfleet/rollout/FleetReader.h"
#include "panelfleet/rollout/FleetView.h"

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace Vantor {

// The broker, as a roll-out sees it: what is retained, and what is answered. A message is
// taken into the view where it comes in, so that there is no queue to run over.
//
// Threads: any for what is public; the listener's part is the link's. Lifetime: the
// destructor ends the connection.
class FleetClient final : private BrokerLink::Listener {
public:
    using Clock = std::chrono::steady_clock;

    struct Reply {
        std::string host;
        std::string place;
        Answer answer;
    };

    // Since it was last asked.
    struct News {
        bool isLost = false;     // the connection; `reason` says why
        bool isComplete = false; // all that is retained has been told
        std::string reason;
        std::string refusal; // of what can't be done without; empty: none
        std::vector<Reply> replies;
    };

    // `rests` as of FleetReader.
    FleetClient(const BrokerSettings& settings, Selection selection, const std::string& id,
                std::vector<std::string> rests);
    ~FleetClient() override;
    FleetClient(const FleetClient&) = delete;
    FleetClient& operator=(const FleetClient&) = delete;

    void start() { m_link.start(); }

    // Readable when something has come, until `takeNews`.
    int getDescriptor() const { return m_wakeUp.getDescriptor(); }
    News takeNews();

    // When anything last came, or the connection.
    Clock::time_point getLastHeard() const;

    // What is retained stays as it is meanwhile, and nothing more comes in: not for long.
    void look(const std::function<void(const FleetView&)>& with) const;
    // For who keeps it and looks at it in `look` alone.
    const FleetView& getView() const MORVANE_NO_THREAD_SAFETY_ANALYSIS { return m_view; }

    // Nothing that is large waits for the broker.
    bool mayPublish() const { return m_link.getCounts().waiting == 0; }

    // With where and how to answer. It goes out with the next connection if this one is lost:
    // the id has it done once.
    void command(const std::string& host, const std::string& place, Message message);

private:
    static constexpr std::size_t maxReplies = 4096;

    Plan planConnection() override;
    void onConnected(const std::vector<std::string>& refused) override;
    void onDisconnected(const std::string& reason) override;
    void onMessage(Message message) override;
    void onRefused(const std::string& topic, const std::string& reason) override;

    void addReply(const Message& message) MORVANE_REQUIRES(m_mutex);
    void carryOut(const FleetReader::Step& step);

    const std::string m_run;
    const std::string m_answerTopic; // behind the host
    const WakeUp m_wakeUp;

    mutable std::mutex m_mutex; // over all below but the link
    FleetView m_view MORVANE_GUARDED_BY(m_mutex);
    FleetReader m_reader MORVANE_GUARDED_BY(m_mutex);
    News m_news MORVANE_GUARDED_BY(m_mutex);
    Clock::time_point m_lastHeard MORVANE_GUARDED_BY(m_mutex);

    BrokerLink m_link;
};

} // namespace Vantor
