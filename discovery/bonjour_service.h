// bonjour_service.h - what cBonjour keeps of each thing that it does with DNS-SD.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "bonjour.h"
#include "discovery/known_services.h"
#include "loam/string.h"

namespace pennywort::discovery {

// How often the observers of a browse hear of one service: each time that the library tells of it,
// once, or once for each interface.
enum class reporting { plain, once, each_interface };

}  // namespace pennywort::discovery

// A registration, a browse, or the look-up of one service.
class cBonjourService {
public:
    cBonjourService(const char* service_type, std::int32_t service_port)
        : type(service_type), port(service_port) {}

    cBonjourLib::Reference reference = nullptr;
    zString domain;
    zString name;
    zString type;
    std::int32_t port;                        // host order
    std::vector<std::int32_t> observers;      // of a browse
    std::int32_t event = 0;                   // of a look-up: 'cBj+' or 'cBj-'
    cBonjourLib::Reference parent = nullptr;  // of a look-up: the browse that it is for

    // Beside these
    pennywort::discovery::reporting how = pennywort::discovery::reporting::plain;  // of a browse
    std::unique_ptr<pennywort::discovery::known_services> known;  // of one that is not plain
    std::unique_ptr<cBonjourService> ahead;  // of such a one: the next look-up, begun already
    std::uint32_t interface_index = 0;       // of a look-up
    std::uint64_t stay = 0;                  // of one that was waiting, as known_services has it
    // Of a browse and its look-ups: the library may give the reference of a browse that has ended
    // to the next one.
    std::uint64_t number = 0;
    bool is_answered = false;    // a look-up
    bool is_turn_asked = false;  // of a browse that is not plain: its next look-up is posted
    bool is_full = false;        // of such a browse: it was told of too many services
};

namespace pennywort::discovery {

inline constexpr std::int32_t k_service_found = 0x63426A2B;  // 'cBj+'
inline constexpr std::int32_t k_service_gone = 0x63426A2D;   // 'cBj-'

// What a browse tells.
struct found_service {
    std::int32_t event;
    std::uint32_t interface_index;
    const char* name;
    const char* type;
    const char* domain;
};

// What a look-up tells.
struct resolved_service {
    std::int32_t error;
    const char* host;  // may be null
    std::int32_t port;
    std::uint16_t txt_length;
    const unsigned char* txt;
};

// What the library's calls lead to. Whoever is inside a call of the library's keeps it, and sees
// whether its object has ended meanwhile.
struct life {
    cBonjour* owner;  // null when that has ended
    std::uint64_t last_browse = 0;
};

}  // namespace pennywort::discovery
