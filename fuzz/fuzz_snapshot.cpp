// The widget's snapshot file. What decodes must survive being written again: the same value back, and
// the same bytes from a second write.
#include "FuzzSupport.h"
#include "snapshot/GlucoseSnapshot.h"

using namespace glinta;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto snapshot = fuzz::attempt([&] { return decodeSnapshot(fuzz::bytes(data, size)); });
    if (!snapshot)
        return 0;
    // A value the file cannot hold is refused by the encoder, which is its job.
    const auto file = fuzz::attempt([&] { return encodeSnapshot(*snapshot); });
    if (!file)
        return 0;

    const GlucoseSnapshot readBack =
        fuzz::mustSucceed("re-encoded snapshot not decodable", [&] { return decodeSnapshot(*file); });
    fuzz::require(readBack == *snapshot, "re-encoded snapshot reads back different");
    const QByteArray again =
        fuzz::mustSucceed("read-back snapshot not encodable", [&] { return encodeSnapshot(readBack); });
    fuzz::require(again == *file, "snapshot encoding not stable");
    return 0;
}
