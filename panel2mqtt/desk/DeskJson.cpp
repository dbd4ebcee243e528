#include "panel2mqtt/desk/DeskJson.h"

#include <array>
#include <utility>

#include <nlohmann/json.hpp>

namespace Vantor::DeskJson {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t longestTime = 32; // what is read may be told again
constexpr std::size_t longestText = 256;
constexpr std::uint64_t epochEnd = std::uint64_t{1} << 53; // exact in every JSON; and an epoch must be able to grow

// What panels and people say need not be UTF-8.
std::string textOf(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json parseObject(const std::string& text)
{
    Json json = Json::parse(text, nullptr, false);
    if (!json.is_object())
        return Json::object();
    return json; // moved: a copy of what nests deeply takes the stack
}

// With nothing that is missing or of another type.
template <typename Value> std::optional<Value> find(const Json& json, const char* name)
{
    const auto found = json.find(name);
    if (found == json.end())
        return std::nullopt;
    if constexpr (std::is_same_v<Value, bool>) {
        if (!found->is_boolean())
            return std::nullopt;
    } else if constexpr (std::is_same_v<Value, std::string>) {
        if (!found->is_string())
            return std::nullopt;
    } else if (!found->is_number_unsigned()) {
        return std::nullopt;
    }
    return found->get<Value>();
}

// Of a job's image; empty: none that could be one.
std::string findSum(const Json& json, const char* mcu)
{
    constexpr std::size_t digits = 64;
    const auto sums = json.find("sha256");
    if (sums == json.end() || !sums->is_object())
        return "";
    const std::string sum = find<std::string>(*sums, mcu).value_or("");
    return sum.size() == digits ? sum : "";
}

} // namespace

const char* nameOf(Answer::Word word)
{
    constexpr std::array<const char*, 7> names{"taken",   "busy",    "too-large", "offline",
                                               "expired", "refused", "unknown"};
    return names.at(static_cast<std::size_t>(word));
}

std::string write(const HostState& state)
{
    return textOf({{"online", state.isOnline}, {"epoch", state.epoch}, {"run", state.run}, {"version", state.version}});
}

std::string write(const HostClaim& claim)
{
    return textOf({{"run", claim.run}, {"since", claim.since}, {"serving", claim.isServing}});
}

std::string write(const PlaceState& state)
{
    Json json{{"online", state.isOnline}, {"epoch", state.epoch}, {"since", state.since}};
    if (!state.reason.empty())
        json["reason"] = state.reason;
    return textOf(json);
}

std::string write(const JobState& state)
{
    Json json{{"state", state.state},
              {"bytesWritten", state.bytesWritten},
              {"totalBytes", state.totalBytes},
              {"since", state.since}};
    if (!state.reason.empty())
        json["reason"] = state.reason;
    for (const auto& [name, sum] : {std::pair("main", &state.mainSum), std::pair("servo", &state.servoSum)}) {
        if (!sum->empty())
            json["sha256"][name] = *sum;
    }
    return textOf(json);
}

std::string write(const std::string& place, const PanelInfo& info)
{
    return textOf({{"place", place},
                   {"description", info.description},
                   {"maxPacketSize", info.maxPacketSize},
                   {"payloadLimit", info.payloadLimit}});
}

std::string write(const Answer& answer, const std::string& host, const std::string& place)
{
    Json json{{"answer", nameOf(answer.word)}, {"host", host}};
    if (!place.empty())
        json["place"] = place;
    if (!answer.reason.empty())
        json["reason"] = answer.reason;
    return textOf(json);
}

std::optional<HostState> readHostState(const std::string& text)
{
    const Json json = parseObject(text);
    const auto isOnline = find<bool>(json, "online");
    const auto epoch = find<std::uint64_t>(json, "epoch");
    if (!isOnline || !epoch || *epoch >= epochEnd)
        return std::nullopt;
    return HostState{*isOnline, *epoch, find<std::string>(json, "run").value_or(""),
                     find<std::string>(json, "version").value_or("")};
}

std::optional<HostClaim> readHostClaim(const std::string& text)
{
    const Json json = parseObject(text);
    const auto run = find<std::string>(json, "run");
    const auto since = find<std::uint64_t>(json, "since");
    const auto isServing = find<bool>(json, "serving");
    if (!run || !since || !isServing)
        return std::nullopt;
    return HostClaim{*run, *since, *isServing};
}

std::optional<PlaceState> readPlaceState(const std::string& text)
{
    const Json json = parseObject(text);
    const auto isOnline = find<bool>(json, "online");
    const auto since = find<std::string>(json, "since");
    if (!isOnline || !since || since->size() > longestTime)
        return std::nullopt;
    return PlaceState{*isOnline, find<std::uint64_t>(json, "epoch").value_or(0), *since,
                      find<std::string>(json, "reason").value_or("")};
}

std::optional<JobState> readJobState(const std::string& text)
{
    const Json json = parseObject(text);
    const auto state = find<std::string>(json, "state");
    const auto written = find<std::uint64_t>(json, "bytesWritten");
    const auto total = find<std::uint64_t>(json, "totalBytes");
    if (!state || !written || !total || *written > UINT32_MAX || *total > UINT32_MAX || state->size() > longestText)
        return std::nullopt;
    return JobState{*state,
                    static_cast<std::uint32_t>(*written),
                    static_cast<std::uint32_t>(*total),
                    find<std::string>(json, "since").value_or("").substr(0, longestText),
                    find<std::string>(json, "reason").value_or("").substr(0, longestText),
                    findSum(json, "main"),
                    findSum(json, "servo")};
}

std::optional<PanelInfo> readPanelInfo(const std::string& text)
{
    const Json json = parseObject(text);
    const auto description = find<std::string>(json, "description");
    const auto maxPacketSize = find<std::uint64_t>(json, "maxPacketSize");
    const auto payloadLimit = find<std::uint64_t>(json, "payloadLimit");
    if (!description || !maxPacketSize || !payloadLimit || *maxPacketSize > UINT32_MAX || *payloadLimit > UINT32_MAX)
        return std::nullopt;
    return PanelInfo{*description, static_cast<unsigned int>(*maxPacketSize), static_cast<unsigned int>(*payloadLimit)};
}

std::optional<Answer> readAnswer(const std::string& text)
{
    const Json json = parseObject(text);
    const auto answer = find<std::string>(json, "answer");
    for (int word = 0; answer && word <= static_cast<int>(Answer::Word::Unknown); ++word) {
        if (*answer == nameOf(static_cast<Answer::Word>(word)))
            return Answer{static_cast<Answer::Word>(word), find<std::string>(json, "reason").value_or("")};
    }
    return std::nullopt;
}

} // namespace Vantor::DeskJson
