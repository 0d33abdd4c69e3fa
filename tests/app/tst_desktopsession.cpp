// Glinta as a user meets it: the real program in a real X session with a tray (trayer, XEmbed), signed in
// to the simulated service, clicked with xdotool. Leaves a screenshot of the screen as an artefact.
#include "GlintaProcess.h"
#include "GlucoseSnapshot.h"
#include "KeychainStore.h"
#include "MenuBarLabel.h"
#include "SimulatedService.h"
#include "TaskOutcome.h"
#include "TrayIconPainter.h"

#include <QApplication>
#include <QPainter>
#include <QRegularExpression>
#include <QScreen>
#include <QStandardPaths>
#include <QSystemTrayIcon>
#include <QUuid>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

QString run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput());
}

// The first of Glinta's windows on screen now that `wanted` takes, from the X server: absolute position
// and size.
std::optional<QRect> findWindow(const std::function<bool(const QRect &)> &wanted)
{
    static const QRegularExpression field(
        uR"(^\s*(Absolute upper-left X|Absolute upper-left Y|Width|Height|Map State):\s+(\S+))"_s,
        QRegularExpression::MultilineOption);
    const QStringList ids =
        run(u"xdotool"_s, {u"search"_s, u"--classname"_s, u"^glinta$"_s}).split(u'\n', Qt::SkipEmptyParts);
    for (const QString &id : ids) {
        QHash<QString, QString> info;
        for (auto it = field.globalMatch(run(u"xwininfo"_s, {u"-id"_s, id})); it.hasNext();) {
            const auto match = it.next();
            info.insert(match.captured(1), match.captured(2));
        }
        const QRect window(info.value(u"Absolute upper-left X"_s).toInt(),
                           info.value(u"Absolute upper-left Y"_s).toInt(), info.value(u"Width"_s).toInt(),
                           info.value(u"Height"_s).toInt());
        if (info.value(u"Map State"_s) == u"IsViewable"_s && wanted(window))
            return window;
    }
    return std::nullopt;
}

const auto isTrayIcon = [](const QRect &r) {
    return r.width() <= 64 && r.width() == r.height() && r.width() > 8;
};
const auto isPanel = [](const QRect &r) { return r.width() >= 330 && r.width() <= 360 && r.height() > 100; };

// How far apart two pictures are, pixel by pixel: the mean and the worst channel difference.
std::pair<double, int> difference(const QImage &a, const QImage &b)
{
    double total = 0;
    int worst = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const QColor p = a.pixelColor(x, y);
            const QColor q = b.pixelColor(x, y);
            const int d = std::max({std::abs(p.red() - q.red()), std::abs(p.green() - q.green()),
                                    std::abs(p.blue() - q.blue())});
            total += d;
            worst = std::max(worst, d);
        }
    }
    return {total / (a.width() * a.height()), worst};
}

} // namespace

class TestDesktopSession : public QObject
{
    Q_OBJECT

    sim::SimulatedService m_service;
    sim::SimAccount m_account{u"desktop-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces) +
                                  u"@example.com"_s,
                              u"pw"_s,
                              u"u-7"_s,
                              u"eu"_s,
                              {{u"p-7"_s, u"Ann Lee"_s, {}}}};
    KeychainStore m_keychain;

public:
    static void initMain()
    {
        if (!qEnvironmentVariableIsEmpty("DISPLAY"))
            qputenv("QT_QPA_PLATFORM", "xcb");
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (QGuiApplication::platformName() != u"xcb"_s)
            QSKIP("needs an X display with a tray (./test.sh provides one)");
        if (!QSystemTrayIcon::isSystemTrayAvailable())
            QSKIP("needs a tray host on the display (./test.sh starts trayer)");
        if (QStandardPaths::findExecutable(u"xdotool"_s).isEmpty())
            QSKIP("needs xdotool");
        m_service.addAccount(m_account);
        QVERIFY(m_service.start() != 0);
        QVERIFY(!runToEnd(m_keychain.savePassword(m_account.password, m_account.email)));
    }

    void cleanupTestCase() { runToEnd(m_keychain.deletePassword(m_account.email)); }

    void trayShowsTheValueAndClickOpensThePanel()
    {
        GlintaProcess glinta;
        glinta.useService(m_service.endpoints());
        glinta.setPreference(u"libreLinkUpEmail"_s, m_account.email);
        glinta.start();

        // Signed in and published: the snapshot says what the tray must show.
        QTRY_VERIFY2_WITH_TIMEOUT(QFile::exists(glinta.snapshotPath()), qPrintable(glinta.output()), 20000);
        QFile file(glinta.snapshotPath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        const GlucoseSnapshot snapshot = decodeSnapshot(file.readAll());
        QVERIFY(snapshot.latest);
        const MenuBarTitle title =
            menuBarTitle(snapshot.latest, snapshot.unit, QDateTime::currentDateTimeUtc(), std::nullopt);

        std::optional<QRect> icon;
        QTRY_VERIFY_WITH_TIMEOUT((icon = findWindow(isTrayIcon)).has_value(), 10000);
        // The tray draws the icon over its own background: compare with our drawing laid on that.
        QTest::qWait(500);
        const QImage shown = QGuiApplication::primaryScreen()
                                 ->grabWindow(0, icon->x(), icon->y(), icon->width(), icon->height())
                                 .toImage();
        QImage expected(shown.size(), QImage::Format_ARGB32);
        expected.fill(shown.pixelColor(0, 0));
        {
            QPainter painter(&expected);
            painter.drawImage(0, 0,
                              paintTrayIcon(title, icon->width(), 1.0,
                                            QGuiApplication::palette().color(QPalette::WindowText)));
        }
        const auto [mean, worst] = difference(shown, expected);
        qInfo("Tray icon %s: mean difference %.2f, worst %d", qPrintable(title.text), mean, worst);
        QVERIFY2(
            mean < 1 && worst < 40,
            qPrintable(u"icon differs from %1: mean %2, worst %3"_s.arg(title.text).arg(mean).arg(worst)));

        // A click on the icon opens the panel next to it.
        run(u"xdotool"_s, {u"mousemove"_s, QString::number(icon->center().x()),
                           QString::number(icon->center().y()), u"click"_s, u"1"_s});
        std::optional<QRect> panel;
        QTRY_VERIFY_WITH_TIMEOUT((panel = findWindow(isPanel)).has_value(), 10000);
        QVERIFY(QGuiApplication::primaryScreen()->geometry().contains(*panel));
        QTest::qWait(300);
        const QString artefact = QStringLiteral(GLINTA_ARTIFACT_DIR) + u"/desktop-session.png"_s;
        QVERIFY(QGuiApplication::primaryScreen()->grabWindow(0).save(artefact, "PNG"));
        qInfo("Screenshot: %s", qPrintable(artefact));

        // A second launch of the same profile brings the running one's panel forward and ends.
        run(u"xdotool"_s, {u"key"_s, u"Escape"_s});
        QTRY_VERIFY_WITH_TIMEOUT(!findWindow(isPanel), 5000);
        GlintaProcess second;
        second.environment = glinta.environment;
        second.start();
        QVERIFY(second.process().waitForFinished(10000));
        QCOMPARE(second.process().exitCode(), 0);
        QVERIFY(second.output().contains(u"Glinta is already running"_s));
        QTRY_VERIFY_WITH_TIMEOUT(findWindow(isPanel).has_value(), 5000);

        // Ended like a session ends it: cleanly, and nothing left in the runtime directory.
        glinta.process().terminate();
        QVERIFY(glinta.process().waitForFinished(10000));
        QCOMPARE(glinta.process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(glinta.process().exitCode(), 0);
        const QDir runtime(glinta.environment.value(u"XDG_RUNTIME_DIR"_s));
        QCOMPARE(runtime.entryList({u"glinta-*"_s}, QDir::AllEntries | QDir::System), QStringList());
    }
};

QTEST_MAIN(TestDesktopSession)
#include "tst_desktopsession.moc"
