#include "panel2mqtt/desk/FlashJob.h"

#include <algorithm>

namespace Vantor {

namespace {

std::string describePatience()
{
    return std::to_string(FlashJob::patience.count()) + " s";
}

} // namespace

FlashJob::FlashJob(std::uint32_t mainSize, std::uint32_t servoSize) : m_total(mainSize + servoSize)
{
    addChunks(FirmwareData::MainMcu, mainSize);
    addChunks(FirmwareData::ServoMcu, servoSize);
}

void FlashJob::addChunks(FirmwareData::Board board, std::uint32_t size)
{
    for (std::uint32_t address = 0; address < size; address += FirmwareData::chunkSize)
        m_unconfirmed.emplace(board, address);
}

void FlashJob::start(TimePoint now)
{
    m_state = State::Writing;
    goOn(now);
}

void FlashJob::goOn(TimePoint now)
{
    m_deadline = now + patience;
}

void FlashJob::onProgress(bool isUpdating, std::uint32_t written, std::uint32_t total, TimePoint now)
{
    if (m_state != State::Writing)
        return;
    if (total != m_total) {
        fail(Answer::Word::Refused, "the images could not be read whole");
        return;
    }
    if (written > m_written)
        m_hasProgress = true;
    m_written = std::clamp(written, m_written, m_total);
    if (m_isUpdating && !isUpdating)
        m_deadline = now + lateReplies;
    m_isUpdating = isUpdating;
}

void FlashJob::onReply(const FirmwareUpgradeCommand& reply)
{
    m_lastReply = reply.command;
    const std::uint32_t address = reply.address; // of a packed record, which nothing may refer to
    if (m_state == State::Writing && reply.command == FirmwareUpgradeCommand::ChunkWritten &&
        m_unconfirmed.erase({reply.board, address}) != 0)
        m_hasProgress = true;
}

void FlashJob::onPanelLeft(TimePoint now)
{
    m_isThere = false;
    m_hasInformation = false;
    if (m_state == State::Queued)
        fail(Answer::Word::Offline, "the panel left before anything was sent");
    // One that restarts by itself does so before the library is done.
    else if (m_state == State::Writing && m_unconfirmed.empty())
        finishWriting(now);
    else if (m_state == State::Writing)
        fail(Answer::Word::Offline, "the panel left at " + describePosition() + ": flash it again");
}

void FlashJob::onPanelReady()
{
    m_isThere = true;
    m_hasInformation = true;
}

void FlashJob::finishWriting(TimePoint now)
{
    m_state = State::Written;
    m_written = m_total;
    m_hasInformation = false; // of before
    m_deadline = now + patience;
    m_nextQuestion = now;
}

void FlashJob::poll(TimePoint now)
{
    if (m_state == State::Writing) {
        m_nextLook = now + lookStep;
        if (m_hasProgress && m_isUpdating)
            goOn(now);
        m_hasProgress = false;
        if (!m_isUpdating && m_unconfirmed.empty())
            finishWriting(now);
        else if (now >= m_deadline)
            fail(m_isUpdating ? Answer::Word::Expired : Answer::Word::Unknown,
                 m_isUpdating ? explainSilence() : explainUnconfirmed());
    } else if (m_state == State::Written) {
        if (m_hasInformation)
            m_state = State::Answering;
        else if (now >= m_deadline)
            fail(m_isThere ? Answer::Word::Expired : Answer::Word::Offline,
                 std::string("written, but the panel has not ") + (m_isThere ? "answered" : "come back") + " within " +
                     describePatience() + ": plug it in anew");
    }
}

FlashJob::TimePoint FlashJob::getNextDue() const
{
    if (m_state == State::Writing)
        return std::min(m_deadline, m_nextLook);
    if (m_state == State::Written)
        return m_isThere ? std::min(m_deadline, m_nextQuestion) : m_deadline;
    return m_state == State::Queued ? TimePoint::min() : TimePoint::max();
}

bool FlashJob::takeQuestion(TimePoint now)
{
    if (m_state != State::Written || !m_isThere || now < m_nextQuestion)
        return false;
    m_nextQuestion = now + questionStep;
    return true;
}

void FlashJob::fail(Answer::Word word, std::string reason)
{
    m_state = State::Failed;
    m_end = {word, std::move(reason)};
}

std::string FlashJob::describePosition() const
{
    return std::to_string(m_written) + " of " + std::to_string(m_total) + " bytes";
}

std::string FlashJob::explainSilence() const
{
    const bool isFailing =
        m_lastReply == FirmwareUpgradeCommand::WriteFailed || m_lastReply == FirmwareUpgradeCommand::EraseFailed;
    return (isFailing ? "the panel fails to write its flash memory, at "
                      : "the panel has confirmed nothing for " + describePatience() + ", at ") +
           describePosition() + ": plug it in anew and flash it again";
}

std::string FlashJob::explainUnconfirmed() const
{
    const auto& [board, address] = *m_unconfirmed.begin();
    return "the panel has never confirmed byte " + std::to_string(address) + " of the " +
           (board == FirmwareData::MainMcu ? "main" : "servo") + " image: flash it again";
}

} // namespace Vantor
