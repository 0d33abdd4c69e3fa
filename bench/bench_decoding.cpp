// Decoding a 12-hour graph response and turning it into readings, and splitting a day's worth of
// readings into chart segments: the work behind every poll and every redraw.
#include "client/LLURecords.h"
#include "client/ServiceMapping.h"
#include "domain/GlucoseChartSeries.h"
#include "domain/GlucoseConstants.h"

#include <QDateTime>
#include <QLocale>

#include <benchmark/benchmark.h>

#include <cmath>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QDateTime start(QDate(2024, 1, 15), QTime(0, 0), Qt::LocalTime);

double curve(int minute)
{
    return 130.0 + 70.0 * std::sin(minute / 97.0) + 15.0 * std::sin(minute / 11.0);
}

// A graph response as the service sends it: `points` history entries `step` minutes apart, plus the
// current measurement in the connection.
QByteArray graphResponse(int points, int stepMinutes)
{
    const auto measurement = [](int minute) {
        const QString stamp = QLocale::c().toString(start.addSecs(minute * 60LL), u"M/d/yyyy h:mm:ss AP"_s);
        return QString::asprintf("{\"FactoryTimestamp\":\"%s\",\"Timestamp\":\"%s\",\"type\":0,"
                                 "\"ValueInMgPerDl\":%.0f,\"MeasurementColor\":1,\"GlucoseUnits\":1,"
                                 "\"Value\":%.0f,\"isHigh\":false,\"isLow\":false,\"TrendArrow\":3}",
                                 qPrintable(stamp), qPrintable(stamp), curve(minute), curve(minute))
            .toUtf8();
    };
    QByteArray body = R"({"status":0,"data":{"connection":{"id":"c1","patientId":"p1","firstName":"Ann",)"
                      R"("lastName":"Lee","targetLow":70,"targetHigh":180,"glucoseMeasurement":)";
    body += measurement(points * stepMinutes) + R"(},"activeSensors":[],"graphData":[)";
    for (int i = 0; i < points; ++i) {
        if (i > 0)
            body += ',';
        body += measurement(i * stepMinutes);
    }
    body += "]},\"ticket\":{\"token\":\"t\",\"expires\":1700000000,\"duration\":3600000}}";
    return body;
}

void BM_DecodeGraphToReadings(benchmark::State &state)
{
    const int points = static_cast<int>(state.range(0));
    const QByteArray body = graphResponse(points, 12 * 60 / points);
    for (auto _ : state) {
        const auto response = decodeLLUResponse<LLUGraphData>(body);
        GraphReadings result = readings(*response.data);
        benchmark::DoNotOptimize(result);
    }
    state.counters["bytes"] = static_cast<double>(body.size());
}
BENCHMARK(BM_DecodeGraphToReadings)->Arg(48)->Arg(720)->Unit(benchmark::kMicrosecond);

void BM_ChartSegments(benchmark::State &state)
{
    QList<GlucoseReading> history;
    for (int minute = 0; minute < state.range(0); ++minute)
        history.append(
            {start.addSecs(minute * 60LL).toUTC(), curve(minute) - 60.0, TrendArrow::steady, false, false});
    for (auto _ : state) {
        auto segments = chartSegments(history, targetLowMgPerDl);
        benchmark::DoNotOptimize(segments);
    }
}
BENCHMARK(BM_ChartSegments)->Arg(720)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
