// The connections response, and what the store takes from its first connection.
#include "FuzzSupport.h"
#include "client/LLURecords.h"
#include "client/ServiceMapping.h"

using namespace glinta;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto connections = fuzz::serviceData<QList<LLUConnection>>(data, size);
    if (!connections)
        return 0;

    for (const LLUConnection &connection : *connections) {
        const auto name = displayName(connection);
        fuzz::require(!name || !name->isEmpty(), "display name present but empty");
        if (connection.glucoseMeasurement)
            reading(*connection.glucoseMeasurement);
    }
    return 0;
}
