#include "LogCapture.h"
#include "app/ImageExport.h"
#include "store/Preferences.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QString exportCategory = u"com.nordvik.glinta.ImageExport"_s;
const QStringList pictureNames{u"widget-small"_s, u"widget-medium"_s, u"widget-large"_s, u"panel"_s};
const QDateTime fixedNow = QDateTime(QDate(2025, 3, 14), QTime(9, 26, 53, 589), Qt::UTC);
constexpr qint64 junkSize = 4 * 1024 * 1024;

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
        // Files there already, longer than any picture: a write that did not truncate leaves a tail.
        for (const QString &path : allPaths(m_exported.path())) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(QByteArray(junkSize, 'x'));
        }
        LogCapture log;
        exportImages(nullptr, m_exported.path(), fixedNow);
        for (const LogCapture::Entry &entry : log.inCategory(exportCategory))
            m_exportLog.append(entry.message);
    }

    void launchGate_data()
    {
        QTest::addColumn<bool>("render"); // else the switch is absent
        QTest::newRow("absent") << false;
        QTest::newRow("true") << true;
    }

    void launchGate()
    {
        QFETCH(bool, render);
        const int written = render ? 8 : 0;
        QTemporaryDir settingsDir, out;
        auto settings =
            std::make_unique<QSettings>(settingsDir.filePath(u"glinta.conf"_s), QSettings::IniFormat);
        if (render)
            settings->setValue(u"RenderImages"_s, true);
        LogCapture log;
        runLaunchExport(Preferences(std::move(settings)), nullptr, out.path());
        QCOMPARE(QDir(out.path()).entryList(QDir::Files).size(), written);
        QCOMPARE(log.inCategory(exportCategory).size(), written);
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
        QVERIFY(QFileInfo(path).size() < junkSize);

        const QImage image(path);
        QCOMPARE(image.size(), pixels);
        // Rounded: the corners are left clear.
        QCOMPARE(qAlpha(image.pixel(image.width() - 1, image.height() - 1)), 0);
        // Inside the margin along the left edge, halfway down: the background itself.
        QCOMPARE(image.pixelColor(8, image.height() / 2).name(QColor::HexArgb),
                 background.name(QColor::HexArgb));
    }

    void unwritableDirectoryGoesOn()
    {
        // Even root cannot make a file below a regular file.
        QTemporaryFile blocker;
        QVERIFY(blocker.open());
        LogCapture log;
        exportImages(nullptr, blocker.fileName() + u"/pictures"_s, fixedNow);
        const auto lines = log.inCategory(exportCategory);
        QCOMPARE(lines.size(), 8);
        for (qsizetype i = 0; i < lines.size(); ++i) {
            const QString prefix = u"Could not write "_s + pictureNames[i % 4] + u": "_s;
            const QString &line = lines[i].message;
            QVERIFY2(lines[i].type == QtCriticalMsg && line.startsWith(prefix) && line.size() > prefix.size(),
                     qPrintable(line));
        }
    }
};

QTEST_MAIN(TestImageExport)
#include "tst_imageexport.moc"
