#include "GlucoseSnapshot.h"
#include "GlucoseStore.h"
#include "MenuBarLabel.h"
#include "Preferences.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace glinta;

class TestMenuBarLabel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void title_data()
    {
        QTest::addColumn<double>("mgPerDl"); // negative: no reading at all
        QTest::addColumn<std::optional<TrendArrow>>("trend");
        QTest::addColumn<GlucoseUnit>("unit");
        QTest::addColumn<qint64>("ageMs");
        QTest::addColumn<std::optional<QString>>("waiting");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("spoken");

        const auto rising = std::optional(TrendArrow::rising);
        const std::optional<TrendArrow> none;
        const auto mg = GlucoseUnit::mgPerDl;
        const std::optional<QString> noUpdate;
        const auto update = std::optional(u"1.4"_s);

        QTest::newRow("no reading, update waiting")
            << -1.0 << rising << mg << 0LL << update << QString() << u"Glinta: no glucose data"_s;
        QTest::newRow("exactly 900 s") << 124.0 << rising << mg << 900000LL << noUpdate << u"124 \u2197"_s
                                       << u"Glucose 124 mg/dL, rising"_s;
        QTest::newRow("900 s and 1 ms")
            << 124.0 << rising << mg << 900001LL << noUpdate << u"124 \u2197 \u26A0\uFE0E"_s
            << u"Glucose 124 mg/dL, rising, data is stale"_s;
        QTest::newRow("stale, update waiting")
            << 124.0 << rising << mg << 901000LL << update << u"124 \u2197 \u26A0\uFE0E \u2022"_s
            << u"Glucose 124 mg/dL, rising, data is stale, update 1.4 available"_s;
        QTest::newRow("no trend, no trailing space")
            << 124.0 << none << mg << 0LL << noUpdate << u"124"_s << u"Glucose 124 mg/dL"_s;
        QTest::newRow("no trend, stale, update waiting")
            << 124.0 << none << mg << 7200000LL << update << u"124 \u26A0\uFE0E \u2022"_s
            << u"Glucose 124 mg/dL, data is stale, update 1.4 available"_s;
        QTest::newRow("mmol/L") << 124.0 << rising << GlucoseUnit::mmolPerL << 0LL << noUpdate
                                << u"6.9 \u2197"_s << u"Glucose 6.9 mmol/L, rising"_s;
        QTest::newRow("empty waiting version") << 88.0 << none << mg << 0LL << std::optional(QString())
                                               << u"88 \u2022"_s << u"Glucose 88 mg/dL, update  available"_s;
    }

    void title()
    {
        QFETCH(double, mgPerDl);
        QFETCH(std::optional<TrendArrow>, trend);
        QFETCH(GlucoseUnit, unit);
        QFETCH(qint64, ageMs);
        QFETCH(std::optional<QString>, waiting);
        QFETCH(QString, text);
        QFETCH(QString, spoken);

        const QDateTime taken(QDate(2024, 1, 15), QTime(10, 0), Qt::UTC);
        std::optional<GlucoseReading> latest;
        if (mgPerDl >= 0)
            latest = GlucoseReading{taken, mgPerDl, trend, false, false};
        const MenuBarTitle title = menuBarTitle(latest, unit, taken.addMSecs(ageMs), waiting);
        QCOMPARE(title.showsSymbol, !latest);
        QCOMPARE(title.text, text);
        QCOMPARE(title.accessibilityLabel, spoken);
    }

    void followsWaitingUpdate()
    {
        QTemporaryDir dir;
        Preferences preferences(
            std::make_unique<QSettings>(dir.filePath(u"glinta.conf"_s), QSettings::IniFormat));
        GlucoseSnapshot snapshot;
        snapshot.latest =
            GlucoseReading{QDateTime::currentDateTimeUtc(), 124, TrendArrow::rising, false, false};
        const auto store = GlucoseStore::fromSnapshot(snapshot);
        MenuBarLabel label(store.get(), &preferences);
        QSignalSpy changed(&label, &MenuBarLabel::titleChanged);
        QCOMPARE(label.title().text, u"124 \u2197"_s);

        preferences.setAvailableUpdateVersion(u"1.4"_s);
        QCOMPARE(label.title().text, u"124 \u2197 \u2022"_s);
        // Another preference changing leaves the title alone.
        preferences.setLibreLinkUpEmail(u"ann@example.com"_s);
        preferences.removeAvailableUpdateVersion();
        QCOMPARE(label.title().text, u"124 \u2197"_s);
        QCOMPARE(changed.size(), 2);
    }
};

QTEST_GUILESS_MAIN(TestMenuBarLabel)
#include "tst_menubarlabel.moc"
