#pragma once

#include <string>
#include <vector>

namespace Vantor {

// How the order of a simulated panel goes on: its words in the order of its places.
struct OrderPlaces {
    std::string opening;              // "fault boot"
    std::vector<std::string> seconds; // what else the opening can have: "boot", "clear"
    struct Place {
        bool isRequired;
        std::vector<std::string> words; // "stall", "short="
    };
    std::vector<Place> places;
};

std::vector<OrderPlaces> listOrderPlaces();

} // namespace Vantor
