#include "GlucoseStore.h"
#include "ImageExport.h"
#include "LogCapture.h"
#include "MenuBarLabel.h"
#include "Preferences.h"
#include "StatusItem.h"

#include <QFile>
#include <QImage>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QTest>

#include <cmath>
#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;

namespace {

const QString exportCategory = u"com.nordvik.glinta.ImageExport"_s;
const QStringList pictureNames{u"widget-small"_s, u"widget-medium"_s, u"widget-large"_s, u"panel"_s};
const QDateTime fixedNow = QDateTime(QDate(2025, 3, 14), QTime(9, 26, 53, 589), Qt::UTC);

QString picturePath(const QString &directory, const QString &name, const QString &appearance)
{
    return directory + u"/glinta-"_s + name + u'-' + appearance + u".png"_s;
}

QStringList allPaths(const QString &directory)
{
    QStringList paths;
    for (const QString &appearance : {u"light"_s, u"dark"_s}) {
        for (const QString &name : pictureNames)
            paths.append(picturePath(directory, name, appearance));
    }
    return paths;
}

QStringList messages(const LogCapture &log)
{
    QStringList lines;
    for (const LogCapture::Entry &entry : log.inCategory(exportCategory))
        lines.append(entry.message);
    return lines;
}

std::unique_ptr<Preferences> preferencesIn(const QTemporaryDir &dir, const QVariant &renderImages)
{
    auto settings = std::make_unique<QSettings>(dir.filePath(u"glinta.conf"_s), QSettings::IniFormat);
    if (renderImages.isValid())
        settings->setValue(u"RenderImages"_s, renderImages);
    return std::make_unique<Preferences>(std::move(settings));
}

bool near(QRgb actual, const QColor &expected)
{
    return std::abs(qRed(actual) - expected.red()) <= 2 && std::abs(qGreen(actual) - expected.green()) <= 2 &&
           std::abs(qBlue(actual) - expected.blue()) <= 2 && qAlpha(actual) == 255;
}

} // namespace

class TestImageExport : public QObject
{
    Q_OBJECT

    QTemporaryDir m_exported;
    QStringList m_exportLog;

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_exported.isValid());
        LogCapture log;
        exportImages(nullptr, m_exported.path(), fixedNow);
        m_exportLog = messages(log);
    }

    void sampleData()
    {
        const GlucoseSnapshot sample = sampleSnapshot(fixedNow);
        QCOMPARE(sample.history.size(), 49);
        QCOMPARE(sample.history.first().date, fixedNow.addSecs(-12 * 3600));
        QCOMPARE(sample.history.last().date, fixedNow);
        QCOMPARE(sample.history.at(1).date, fixedNow.addSecs(-12 * 3600 + 900));
        QVERIFY(std::abs(sample.history.first().mgPerDl - 144.885) < 0.001);
        QCOMPARE(sample.history.last().mgPerDl, 115.0);
        for (const GlucoseReading &reading : sample.history)
            QVERIFY(!reading.trend && !reading.isHigh && !reading.isLow);
        QVERIFY(sample.latest);
        // Well inside the widget's fifteen minutes, so no picture is marked stale.
        QCOMPARE(sample.latest->date.secsTo(fixedNow), 137);
        QCOMPARE(sample.latest->mgPerDl, 112.0);
        QCOMPARE(sample.latest->trend, TrendArrow::steady);
        QCOMPARE(sample.updatedAt, sample.latest->date);
        QVERIFY(!sample.connectionName);
    }

    void launchGate_data()
    {
        QTest::addColumn<QVariant>("renderImages");
        QTest::addColumn<int>("written");
        QTest::newRow("absent") << QVariant() << 0;
        QTest::newRow("false") << QVariant(false) << 0;
        QTest::newRow("true") << QVariant(true) << 8;
    }

    void launchGate()
    {
        QFETCH(QVariant, renderImages);
        QFETCH(int, written);
        QTemporaryDir settingsDir;
        QTemporaryDir out;
        const auto preferences = preferencesIn(settingsDir, renderImages);
        LogCapture log;
        runLaunchExport(*preferences, nullptr, out.path());
        int files = 0;
        for (const QString &path : allPaths(out.path()))
            files += QFile::exists(path) ? 1 : 0;
        QCOMPARE(files, written);
        QCOMPARE(messages(log).size(), written);
    }

    // The launch task hangs on this: once per launch, however often the item is shown.
    void statusItemAnnouncesFirstShowingOnce()
    {
        const auto store = GlucoseStore::fromSnapshot(sampleSnapshot(fixedNow));
        QTemporaryDir settingsDir;
        const auto preferences = preferencesIn(settingsDir, QVariant());
        MenuBarLabel label(store.get(), preferences.get());
        StatusItem item(&label, new QWidget);
        QSignalSpy shown(&item, &StatusItem::firstShown);
        // No tray on this platform: the fallback window, at once.
        item.show(0ms);
        QCOMPARE(shown.size(), 1);
        item.show(0ms);
        QCOMPARE(shown.size(), 1);
    }

    void pictures_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("appearance");
        QTest::addColumn<QSize>("pixels");
        QTest::addColumn<QColor>("background");
        const QColor light = QColor::fromRgbF(0.945f, 0.945f, 0.951f);
        const QColor dark = QColor::fromRgbF(0.135f, 0.135f, 0.145f);
        const QList<QSize> sizes{{340, 340}, {728, 340}, {728, 728}, {680, 704}};
        for (const auto &[appearance, colour] : {std::pair{u"light"_s, light}, std::pair{u"dark"_s, dark}}) {
            for (qsizetype i = 0; i < pictureNames.size(); ++i) {
                QTest::addRow("%s %s", qPrintable(pictureNames[i]), qPrintable(appearance))
                    << pictureNames[i] << appearance << sizes[i] << colour;
            }
        }
    }

    void pictures()
    {
        QFETCH(QString, name);
        QFETCH(QString, appearance);
        QFETCH(QSize, pixels);
        QFETCH(QColor, background);
        const QString path = picturePath(m_exported.path(), name, appearance);
        QVERIFY(m_exportLog.contains(u"Wrote "_s + path));

        const QImage image(path);
        QCOMPARE(image.size(), pixels);
        QVERIFY(image.hasAlphaChannel());
        const int right = image.width() - 1;
        const int bottom = image.height() - 1;
        for (const QPoint corner : {QPoint(0, 0), QPoint(right, 0), QPoint(0, bottom), QPoint(right, bottom)})
            QCOMPARE(qAlpha(image.pixel(corner)), 0);
        // Inside the margin along the left edge, halfway down: the background itself.
        const QRgb margin = image.pixel(8, image.height() / 2);
        QVERIFY2(near(margin, background), qPrintable(QColor(margin).name()));
    }

    void secondRunReplacesFiles()
    {
        QTemporaryDir out;
        exportImages(nullptr, out.path(), fixedNow);
        // Longer than any picture: a write that did not truncate would leave its tail behind.
        const QByteArray junk(4 * 1024 * 1024, 'x');
        for (const QString &path : allPaths(out.path())) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(junk);
        }
        exportImages(nullptr, out.path(), fixedNow);
        for (const QString &path : allPaths(out.path())) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::ReadOnly));
            QVERIFY2(file.size() < junk.size(), qPrintable(path));
            QVERIFY(file.read(8).startsWith("\x89PNG"));
        }
    }

    void unwritableDirectoryGoesOn()
    {
        // Even root cannot make a file below a regular file.
        QTemporaryFile blocker;
        QVERIFY(blocker.open());
        LogCapture log;
        exportImages(nullptr, blocker.fileName() + u"/pictures"_s, fixedNow);
        const QStringList lines = messages(log);
        QCOMPARE(lines.size(), 8);
        for (qsizetype i = 0; i < lines.size(); ++i) {
            const QString prefix = u"Could not write "_s + pictureNames[i % 4] + u": "_s;
            QVERIFY2(lines[i].startsWith(prefix) && lines[i].size() > prefix.size(), qPrintable(lines[i]));
        }
        for (const LogCapture::Entry &entry : log.inCategory(exportCategory))
            QCOMPARE(entry.type, QtCriticalMsg);
    }
};

QTEST_MAIN(TestImageExport)
#include "tst_imageexport.moc"
