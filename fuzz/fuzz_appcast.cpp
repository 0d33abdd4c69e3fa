// The update feed, and the version order over what it offers: an order (reflexive, antisymmetric,
// transitive), and newestUpdate picking a newer item than the running build that no other item beats.
#include "FuzzSupport.h"
#include "update/AppcastItem.h"

#include <QStringList>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

int sign(int value)
{
    return (value > 0) - (value < 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto items = fuzz::attempt([&] { return parseAppcast(fuzz::bytes(data, size)); });
    if (!items)
        return 0;

    for (const AppcastItem &item : *items) {
        fuzz::require(!item.version.isEmpty(), "item without a version accepted");
        fuzz::require(!item.displayVersionString.isEmpty(), "item without a version to show");
    }

    // The triple loop stays cheap on a few versions.
    QStringList versions{QString(), u"1.3.5"_s};
    for (qsizetype i = 0; i < std::min<qsizetype>(items->size(), 6); ++i)
        versions.append(items->at(i).version);
    for (const QString &a : std::as_const(versions)) {
        fuzz::require(compareVersions(a, a) == 0, "a version is not equal to itself");
        for (const QString &b : std::as_const(versions)) {
            const int ab = sign(compareVersions(a, b));
            fuzz::require(ab == -sign(compareVersions(b, a)), "version order not antisymmetric");
            for (const QString &c : std::as_const(versions)) {
                if (ab <= 0 && sign(compareVersions(b, c)) <= 0)
                    fuzz::require(compareVersions(a, c) <= 0, "version order not transitive");
            }
        }
    }

    for (const QString &running : std::as_const(versions)) {
        const auto newest = newestUpdate(*items, running);
        const bool anyNewer = std::any_of(items->begin(), items->end(), [&](const AppcastItem &item) {
            return compareVersions(item.version, running) > 0;
        });
        fuzz::require(newest.has_value() == anyNewer, "update offered without a newer item, or missed");
        if (!newest)
            continue;
        for (const AppcastItem &item : *items)
            fuzz::require(compareVersions(item.version, newest->version) <= 0,
                          "a newer item than the update");
    }
    return 0;
}
