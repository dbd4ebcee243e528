#include "packaging/completion/OrderPlaces.h"

#include "simulator/bus/OrderWords.h"

#include <variant>

namespace Vantor {

namespace {

std::vector<OrderPlaces::Place> placesOf(const PanelOrder& order)
{
    std::vector<OrderPlaces::Place> places;
    const auto add = [&places](const auto& phrase, const auto& /*target*/) {
        for (const auto& place : phrase) {
            places.push_back({place.isRequired, {}});
            for (const auto& word : place.words)
                places.back().words.push_back(word.argument.empty() ? word.name : word.name + "=");
        }
    };
    std::visit([&add](const auto& alternative) { OrderWords::usePhrase(alternative, add); }, order);
    return places;
}

} // namespace

std::vector<OrderPlaces> listOrderPlaces()
{
    std::vector<OrderPlaces> list;
    for (const OrderWords::Opening& opening : OrderWords::openings()) {
        OrderPlaces places{
            opening.verb + (opening.second.empty() ? "" : " ") + opening.second, {}, placesOf(opening.order)};
        if (opening.second.empty())
            for (const OrderWords::Opening& other : OrderWords::openings())
                if (other.verb == opening.verb && !other.second.empty())
                    places.seconds.push_back(other.second);
        list.push_back(places);
    }
    return list;
}

} // namespace Vantor
