#include "snapshot/GlucoseSnapshot.h"

#include "domain/ReferenceDate.h"
#include "support/DecodingError.h"
#include "support/JsonDecoding.h"
#include "support/JsonWriter.h"

#include <cmath>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

const QString sizeLimitText = u"16 MiB"_s;

void requireFinite(double number, const QString &where)
{
    if (!std::isfinite(number))
        throw SnapshotEncodingError(u'"' + where + u"\" is not a finite number"_s);
}

// The writer would put null in place of a non-finite number and an invalid date would come out as
// 1970, so both are refused here rather than found by the widget.
void requireStorable(const QDateTime &date, const QString &where)
{
    if (!date.isValid() || !dateFromSecondsSinceReferenceDate(secondsSinceReferenceDate(date)))
        throw SnapshotEncodingError(u'"' + where + u"\" is not a date the file can hold"_s);
}

void requireStorable(const GlucoseReading &reading, const QString &where)
{
    requireStorable(reading.date, where + u".date"_s);
    requireFinite(reading.mgPerDl, where + u".mgPerDl"_s);
}

} // namespace

QString SnapshotEncodingError::description() const
{
    return u"The widget snapshot cannot be saved: "_s + m_problem + u'.';
}

QByteArray encodeSnapshot(const GlucoseSnapshot &snapshot)
{
    if (snapshot.latest)
        requireStorable(*snapshot.latest, u"latest"_s);
    for (qsizetype i = 0; i < snapshot.history.size(); ++i)
        requireStorable(snapshot.history[i], u"history["_s + QString::number(i) + u']');
    requireFinite(snapshot.targets.lowMgPerDl, u"targetLowMgPerDl"_s);
    requireFinite(snapshot.targets.highMgPerDl, u"targetHighMgPerDl"_s);
    requireStorable(snapshot.updatedAt, u"updatedAt"_s);

    JsonWriter writer;
    writer.beginObject();
    if (snapshot.latest) {
        writer.key("latest"_L1);
        writeJson(writer, *snapshot.latest);
    }
    writer.key("history"_L1);
    writer.beginArray();
    for (const GlucoseReading &reading : snapshot.history)
        writeJson(writer, reading);
    writer.endArray();
    writer.key("unit"_L1);
    writer.value(rawValue(snapshot.unit));
    if (snapshot.connectionName) {
        writer.key("connectionName"_L1);
        writer.value(*snapshot.connectionName);
    }
    writer.key("targetLowMgPerDl"_L1);
    writer.value(snapshot.targets.lowMgPerDl);
    writer.key("targetHighMgPerDl"_L1);
    writer.value(snapshot.targets.highMgPerDl);
    writer.key("updatedAt"_L1);
    writer.value(secondsSinceReferenceDate(snapshot.updatedAt));
    if (snapshot.alert) {
        writer.key("alert"_L1);
        writer.value(alertKindName(*snapshot.alert));
    }
    writer.endObject();

    QByteArray bytes = writer.takeBytes();
    if (bytes.size() > maximumSnapshotFileSize)
        throw SnapshotEncodingError(u"it would be larger than "_s + sizeLimitText);
    return bytes;
}

GlucoseSnapshot decodeSnapshot(const QByteArray &bytes)
{
    const json::Path root("snapshot file"_L1);
    if (bytes.size() > maximumSnapshotFileSize)
        throw DecodingError::tooLarge(root.document(), sizeLimitText);

    const QJsonObject object = json::toObject(json::parse(bytes, root), root);
    GlucoseSnapshot snapshot;

    if (const auto latest = json::optional(object, "latest"_L1))
        snapshot.latest = readingFromJson(*latest, root.member("latest"_L1));

    const json::Path historyPath = root.member("history"_L1);
    const QJsonArray history = json::requiredArray(object, "history"_L1, root);
    snapshot.history.reserve(history.size());
    for (qsizetype i = 0; i < history.size(); ++i)
        snapshot.history.append(readingFromJson(history.at(i), historyPath.element(i)));

    const QString unitText = json::requiredString(object, "unit"_L1, root);
    const auto unit = glucoseUnitFromRawValue(unitText);
    if (!unit)
        json::throwWrongValue(object.value("unit"_L1), root.member("unit"_L1), u"\"mg/dL\" or \"mmol/L\""_s);
    snapshot.unit = *unit;

    snapshot.connectionName = json::optionalString(object, "connectionName"_L1, root);
    snapshot.targets.lowMgPerDl = json::requiredNumber(object, "targetLowMgPerDl"_L1, root);
    snapshot.targets.highMgPerDl = json::requiredNumber(object, "targetHighMgPerDl"_L1, root);

    const double updatedAt = json::requiredNumber(object, "updatedAt"_L1, root);
    const auto date = dateFromSecondsSinceReferenceDate(updatedAt);
    if (!date)
        json::throwWrongValue(object.value("updatedAt"_L1), root.member("updatedAt"_L1), u"a date"_s);
    snapshot.updatedAt = *date;
    if (const auto alert = json::optionalString(object, "alert"_L1, root))
        snapshot.alert = alertKindFromName(*alert);
    return snapshot;
}

} // namespace glinta
