#include "LogCapture.h"
#include "TestSupport.h"
#include "app/ImageExport.h"
#include "store/Preferences.h"

#include <QStandardPaths>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QStringList pictureNames{u"widget-small"_s, u"widget-medium"_s, u"widget-large"_s, u"panel"_s};
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
    // Exported through the launch switch, over files already there and longer than any picture: a write that
    // did not truncate leaves a tail. Without the switch a launch exports nothing.
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_exported.isValid());
        for (const QString &path : allPaths(m_exported.path())) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(QByteArray(junkSize, 'x'));
        }
        const QTemporaryDir settingsDir, untouched;
        auto settings =
            std::make_unique<QSettings>(settingsDir.filePath(u"glinta.conf"_s), QSettings::IniFormat);
        QSettings *switches = settings.get();
        const Preferences preferences(std::move(settings));
        LogCapture log;
        runLaunchExport(preferences, nullptr, untouched.path());
        QCOMPARE(QDir(untouched.path()).entryList(QDir::Files), QStringList());
        switches->setValue(u"RenderImages"_s, true);
        runLaunchExport(preferences, nullptr, m_exported.path());
        m_exportLog = log.lines(u"ImageExport"_s);
    }

    void pictures_data()
    {
        columns<QString, QString, QSize, QColor>("name", "appearance", "pixels", "background");
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
        const auto [name, appearance, pixels, background] =
            fetch<QString, QString, QSize, QColor>("name", "appearance", "pixels", "background");
        const QString path = picturePath(m_exported.path(), name, appearance);
        QVERIFY(m_exportLog.contains(u"info: Wrote "_s + path) && QFileInfo(path).size() < junkSize);

        const QImage image(path);
        QCOMPARE(image.size(), pixels);
        // Rounded: the corners are left clear.
        QCOMPARE(qAlpha(image.pixel(image.width() - 1, image.height() - 1)), 0);
        // Inside the margin along the left edge, halfway down: the background itself.
        QCOMPARE(image.pixelColor(8, image.height() / 2).name(QColor::HexArgb),
                 background.name(QColor::HexArgb));
    }
};

QTEST_MAIN(TestImageExport)
#include "tst_imageexport.moc"
