#include "domain/GlucoseReading.h"

#include "domain/GlucoseConstants.h"
#include "domain/ReferenceDate.h"
#include "support/JsonDecoding.h"
#include "support/JsonWriter.h"

using namespace Qt::StringLiterals;

namespace glinta {

void writeJson(JsonWriter &writer, const GlucoseReading &reading)
{
    writer.beginObject();
    writer.key("date"_L1);
    writer.value(secondsSinceReferenceDate(reading.date));
    writer.key("mgPerDl"_L1);
    writer.value(reading.mgPerDl);
    if (reading.trend) {
        writer.key("trend"_L1);
        writer.value(rawValue(*reading.trend));
    }
    writer.key("isHigh"_L1);
    writer.value(reading.isHigh);
    writer.key("isLow"_L1);
    writer.value(reading.isLow);
    writer.endObject();
}

GlucoseReading readingFromJson(const QJsonValue &value, const json::Path &at)
{
    const QJsonObject object = json::toObject(value, at);
    GlucoseReading reading;

    const double seconds = json::requiredNumber(object, "date"_L1, at);
    const auto date = dateFromSecondsSinceReferenceDate(seconds);
    if (!date)
        json::throwWrongValue(object.value("date"_L1), at.member("date"_L1), u"a date"_s);
    reading.date = *date;

    reading.mgPerDl = json::requiredNumber(object, "mgPerDl"_L1, at);

    // Unlike the service's code, a stored trend outside 1...5 means the file is not ours.
    if (const auto code = json::optionalInteger(object, "trend"_L1, at)) {
        reading.trend = trendArrowFromRawValue(*code);
        if (!reading.trend)
            json::throwWrongValue(object.value("trend"_L1), at.member("trend"_L1), u"a trend from 1 to 5"_s);
    }

    reading.isHigh = json::requiredBool(object, "isHigh"_L1, at);
    reading.isLow = json::requiredBool(object, "isLow"_L1, at);
    return reading;
}

bool isStale(const GlucoseReading &reading, const QDateTime &now)
{
    return reading.date.msecsTo(now) > std::chrono::milliseconds(staleReadingAge).count();
}

GlucoseRange glucoseRange(const GlucoseReading &reading, const TargetRange &range)
{
    if (reading.isLow || reading.mgPerDl < range.lowMgPerDl)
        return GlucoseRange::low;
    if (reading.isHigh || reading.mgPerDl > range.highMgPerDl)
        return GlucoseRange::high;
    return GlucoseRange::inRange;
}

} // namespace glinta
