#pragma once

#include "client/ServiceEndpoints.h"

#include <QString>

// Development builds only: lets tests and the demo point the program at a simulated service through a
// small file in its configuration directory. Release builds contain none of this.
namespace glinta {

inline constexpr QLatin1StringView serviceAddressFileName{"service-address.json"};

// Reads {"defaultBaseURL": url, "regions": {code: url, ...}, "caFile": path}. Regions the file leaves
// out have no address at all, so a development setup can never fall through to the real service.
// Throws DecodingError for a file that is unreadable or breaks that shape.
ServiceEndpoints readServiceAddressFile(const QString &path);

} // namespace glinta
