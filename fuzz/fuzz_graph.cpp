// The graph response, mapped to readings as the store does, then published as the widget's snapshot,
// which must read back as what was written.
#include "FuzzSupport.h"
#include "client/LLURecords.h"
#include "client/ServiceMapping.h"
#include "snapshot/GlucoseSnapshot.h"

using namespace glinta;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto graph = fuzz::serviceData<LLUGraphData>(data, size);
    if (!graph)
        return 0;

    const GraphReadings mapped = readings(*graph);
    for (qsizetype i = 1; i < mapped.history.size(); ++i)
        fuzz::require(mapped.history[i - 1].date < mapped.history[i].date,
                      "history not strictly oldest first");
    fuzz::require(mapped.latest.has_value() == !mapped.history.isEmpty(),
                  "a latest reading without history, or history without one");
    fuzz::require(!mapped.displayName || !mapped.displayName->isEmpty(), "display name present but empty");

    GlucoseSnapshot snapshot;
    snapshot.latest = mapped.latest;
    snapshot.history = mapped.history;
    snapshot.connectionName = mapped.displayName;
    snapshot.updatedAt = QDateTime(QDate(2024, 1, 5), QTime(9, 3, 7), Qt::UTC);
    const QByteArray file =
        fuzz::mustSucceed("snapshot of service data not encodable", [&] { return encodeSnapshot(snapshot); });
    const GlucoseSnapshot readBack =
        fuzz::mustSucceed("snapshot of service data not decodable", [&] { return decodeSnapshot(file); });
    fuzz::require(readBack == snapshot, "snapshot of service data reads back different");
    return 0;
}
