#pragma once

#include "domain/AlertKind.h"
#include "domain/GlucoseReading.h"
#include "domain/GlucoseUnit.h"
#include "domain/TargetRange.h"
#include "support/Error.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

namespace glinta {

// What the status-bar application hands to the desktop widget: everything the widget draws, in one file.
struct GlucoseSnapshot
{
    std::optional<GlucoseReading> latest;
    QList<GlucoseReading> history;
    GlucoseUnit unit = GlucoseUnit::mgPerDl;
    std::optional<QString> connectionName;
    TargetRange targets;
    QDateTime updatedAt;
    // The alert Glinta shows while one holds, for the status line.
    std::optional<AlertKind> alert;

    friend bool operator==(const GlucoseSnapshot &, const GlucoseSnapshot &) = default;
};

// A real snapshot is a few kilobytes; the cap keeps a stray huge file from being read into memory.
inline constexpr qsizetype maximumSnapshotFileSize = 16 * 1024 * 1024;

// A snapshot that would make a file the widget cannot read back: a number that is not finite, a date
// outside what the file can hold, or a file over the size cap.
class SnapshotEncodingError : public Error
{
public:
    explicit SnapshotEncodingError(QString problem) : m_problem(std::move(problem)) {}
    QString description() const override;

private:
    QString m_problem;
};

// Compact JSON with keys in a fixed order; "latest", "connectionName" and "alert" are left out when
// absent. Dates are seconds since 2001-01-01 UTC. Throws SnapshotEncodingError.
QByteArray encodeSnapshot(const GlucoseSnapshot &snapshot);
// Key order does not matter. An unknown unit, a trend outside 1...5, a missing key or a file over the cap
// fails the whole file with a DecodingError naming the "snapshot file". An alert this build does not know
// reads as none: a newer Glinta may write one.
GlucoseSnapshot decodeSnapshot(const QByteArray &bytes);

} // namespace glinta
