// The connections response, and what the store takes from its first connection.
#include "FuzzSupport.h"
#include "LLURecords.h"
#include "ServiceMapping.h"

using namespace glinta;

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::initialise();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto response =
        fuzz::attempt([&] { return decodeLLUResponse<QList<LLUConnection>>(fuzz::bytes(data, size)); });
    if (!response || !response->data)
        return 0;

    for (const LLUConnection &connection : *response->data) {
        const auto name = displayName(connection);
        fuzz::require(!name || !name->isEmpty(), "display name present but empty");
        if (connection.glucoseMeasurement)
            reading(*connection.glucoseMeasurement);
    }
    return 0;
}
