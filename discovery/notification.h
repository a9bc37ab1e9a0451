// notification.h - the records by which observers hear of services.
#pragma once

#include <memory>

#include "discovery/bonjour_service.h"
#include "loam/record.h"

namespace pennywort::discovery {

// `type` is that of the browse, as it was asked for. The items of the TXT record are taken apart by
// `library`.
std::unique_ptr<zRecord> make_notification(std::int32_t event, const zString& type,
                                           const char* name, const resolved_service& resolved,
                                           cBonjourLib& library);

}  // namespace pennywort::discovery
