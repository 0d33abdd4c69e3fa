// Fault drills with the real program: glinta signed in to a simulated service that runs as a process of
// its own, then the service killed, the snapshot directory made read-only, the keyring locked and the wall
// clock moved. The program must keep running, keep what it saved and pick up again by itself once the
// fault is gone.
//
// The pauses between cycles are a minute; libfaketime runs the program's clock ten times faster (its
// timerfd pauses included), so a cycle takes six seconds of the test's time.
#include "FakeNotifications.h"
#include "GlintaProcess.h"
#include "PrivateKeyring.h"
#include "TaskOutcome.h"
#include "persistence/KeychainStore.h"
#include "snapshot/GlucoseSnapshot.h"

#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTcpServer>
#include <QUuid>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QString fakeTimeLibrary = u"/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1"_s;
// Six cycles of the program's time; enough for a slow sanitizer build.
constexpr int cycleTimeout = 40000;

// The program that `environment` starts runs on the clock in `clockFile`, through libfaketime.
void useFakeTime(QProcessEnvironment &environment, const QString &clockFile)
{
    environment.insert(u"LD_PRELOAD"_s, fakeTimeLibrary);
    environment.insert(u"FAKETIME_TIMESTAMP_FILE"_s, clockFile);
    environment.insert(u"FAKETIME_NO_CACHE"_s, u"1"_s);
    // Only the wall clock moves; a monotonic clock that jumped back would stall every Qt timer.
    environment.insert(u"FAKETIME_DONT_FAKE_MONOTONIC"_s, u"1"_s);
    // The sanitizer runtime wants to come first; libfaketime in front of it is harmless here.
    environment.insert(u"ASAN_OPTIONS"_s, u"detect_leaks=0:verify_asan_link_order=0"_s);
}

quint16 freePort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost) ? probe.serverPort() : 0;
}

// Runs a helper to its end; its exit code and what it printed, or -1 when it could not run.
std::pair<int, QString> runTool(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(10000))
        return {-1, process.errorString()};
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromLocal8Bit(process.readAll()).trimmed()};
}

// glinta-sim as a process of its own, so that killing it is what a dead service looks like to the program.
class SimProcess
{
public:
    SimProcess(QString account, QString addressFile, QStringList options = {})
        : m_account(std::move(account)), m_addressFile(std::move(addressFile)), m_options(std::move(options))
    {
        m_process.setProcessChannelMode(QProcess::MergedChannels);
    }
    ~SimProcess() { kill(); }

    // On a free port, the same one again after kill(): to the program the service comes back where it was.
    bool start()
    {
        if (m_port == 0)
            m_port = freePort();
        if (m_port == 0)
            return false;
        m_process.setProcessEnvironment(environment);
        m_process.start(QStringLiteral(GLINTA_SIM_PROGRAM),
                        QStringList{u"--port"_s, QString::number(m_port), u"--account"_s, m_account,
                                    u"--address-file"_s, m_addressFile} +
                            m_options);
        QByteArray said;
        while (m_process.waitForReadyRead(20000)) {
            said += m_process.readAll();
            const QRegularExpressionMatch listening =
                QRegularExpression(u"listening on (\\S+)"_s).match(QString::fromUtf8(said));
            if (listening.hasMatch()) {
                m_baseUrl = QUrl(listening.captured(1));
                return true;
            }
        }
        qWarning("glinta-sim did not come up: %s", said.constData());
        return false;
    }

    // A command of its control interface, such as "fault" with a fault's description; true when taken.
    bool control(const QString &command, const QJsonObject &body = {})
    {
        QNetworkAccessManager network;
        QNetworkRequest request(m_baseUrl.resolved(QUrl(u"_sim/"_s + command)));
        request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
        QNetworkReply *reply = network.post(request, QJsonDocument(body).toJson());
        const bool answered = QTest::qWaitFor([reply] { return reply->isFinished(); }, 10000);
        const bool ok = answered && reply->error() == QNetworkReply::NoError;
        delete reply;
        return ok;
    }

    void kill()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.kill();
        m_process.waitForFinished(5000);
    }

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();

private:
    QString m_account;
    QString m_addressFile;
    QStringList m_options;
    QUrl m_baseUrl;
    quint16 m_port = 0;
    QProcess m_process;
};

std::optional<GlucoseSnapshot> readSnapshot(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    try {
        return decodeSnapshot(file.readAll());
    } catch (const std::exception &) {
        return std::nullopt;
    }
}

} // namespace

class TestFaultDrills : public QObject
{
    Q_OBJECT

    const QString m_email =
        u"drill-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces) + u"@example.com"_s;
    const QString m_password = u"drill password"_s;
    // Before the keychain: the keyring must be gone last.
    PrivateKeyring m_keyring;
    KeychainStore m_keychain;
    QTemporaryDir m_scratch;

    QString account() const { return m_email + u':' + m_password + u":eu"_s; }

    // The program signed in from a previous launch (e-mail saved, password in the keyring), its clock
    // driven by libfaketime from `clockFile`; `wrapper` runs in front of it.
    void launch(GlintaProcess &glinta, const QString &clockFile, const QStringList &wrapper = {},
                const QByteArray &speed = "x10")
    {
        setClock(clockFile, "+0 " + speed);
        glinta.setPreference(u"libreLinkUpEmail"_s, m_email);
        useFakeTime(glinta.environment, clockFile);
        glinta.process().setProcessEnvironment(glinta.environment);
        if (wrapper.isEmpty())
            glinta.process().start(QStringLiteral(GLINTA_PROGRAM), QStringList());
        else
            glinta.process().start(wrapper.first(),
                                   wrapper.mid(1) + QStringList{QStringLiteral(GLINTA_PROGRAM)});
        QVERIFY2(glinta.process().waitForStarted(10000), qPrintable(glinta.process().errorString()));
    }

    static void setClock(const QString &clockFile, const QByteArray &setting)
    {
        QFile file(clockFile);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(setting + '\n');
    }

    GlucoseSnapshot awaitFirstSnapshot(GlintaProcess &glinta)
    {
        std::optional<GlucoseSnapshot> snapshot;
        (void)QTest::qWaitFor(
            [&] { return (snapshot = readSnapshot(glinta.snapshotPath())) && snapshot->latest; },
            cycleTimeout);
        if (!snapshot || !snapshot->latest)
            qWarning("No snapshot was published:\n%s", qPrintable(glinta.output()));
        return snapshot.value_or(GlucoseSnapshot());
    }

    // What the user saved is still there: the e-mail in the preferences, the password in the keyring.
    void verifyNothingLost(GlintaProcess &glinta)
    {
        QCOMPARE(glinta.process().state(), QProcess::Running);
        QSettings settings(glinta.configDirectory() + u"/glinta.conf"_s, QSettings::IniFormat);
        QCOMPARE(settings.value(u"libreLinkUpEmail"_s).toString(), m_email);
        const Outcome<std::optional<QString>> password = run(m_keychain.readPassword(m_email));
        QVERIFY2(!password.error, describe(password.error).constData());
        QCOMPARE(password.value->value_or(QString()), m_password);
    }

    static qsizetype occurrences(GlintaProcess &glinta, const QString &text)
    {
        return glinta.output().count(text);
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs a display (./test.sh runs the tests in one)");
        for (const auto tool : {"dbus-daemon", "gnome-keyring-daemon"}) {
            if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
                QSKIP(qPrintable(QString::fromLatin1(tool) + u" is missing; scripts/deps.sh installs it"_s));
        }
        if (!QFile::exists(fakeTimeLibrary))
            QSKIP("needs libfaketime (scripts/deps.sh installs it) to run the program's minute faster");
        QVERIFY(m_scratch.isValid());
        // A keyring of the drills' own, since one of them locks it.
        QVERIFY(m_keyring.start());
        QVERIFY2(!runToEnd(m_keychain.savePassword(m_password, m_email)), "the keyring refused the password");
    }

    void cleanupTestCase() { runToEnd(m_keychain.deletePassword(m_email)); }

    void serviceKilledAndRestarted()
    {
        GlintaProcess glinta;
        SimProcess sim(account(), glinta.configDirectory() + u"/service-address.json"_s);
        QVERIFY(sim.start());
        launch(glinta, m_scratch.filePath(u"clock-killed"_s));
        const GlucoseSnapshot before = awaitFirstSnapshot(glinta);
        QVERIFY(before.latest);

        // The service goes away mid-session: cycles fail, twice over, and the published reading stays.
        sim.kill();
        QTRY_VERIFY2_WITH_TIMEOUT(occurrences(glinta, u"Refresh failed: "_s) >= 2,
                                  qPrintable(glinta.output()), 2 * cycleTimeout);
        const QString log = glinta.output();
        const qsizetype failure = log.indexOf(u"Refresh failed: "_s);
        qInfo("%s", qPrintable(log.mid(failure, log.indexOf(u'\n', failure) - failure)));
        QVERIFY2(log.contains(u"Refresh failed: Could not connect to the server."_s), qPrintable(log));
        QCOMPARE(readSnapshot(glinta.snapshotPath()), std::optional(before));
        verifyNothingLost(glinta);

        // Back on the same port with no memory of the old session: the program signs in again by itself
        // and publishes newer readings.
        QVERIFY(sim.start());
        QTRY_VERIFY2_WITH_TIMEOUT(readSnapshot(glinta.snapshotPath()).value_or(before).updatedAt >
                                      before.updatedAt,
                                  qPrintable(glinta.output()), cycleTimeout);
        QTRY_VERIFY2_WITH_TIMEOUT(glinta.output().contains(u"Session expired; signing in again"_s),
                                  qPrintable(glinta.output()), 5000);
        QVERIFY(!glinta.output().contains(u"Login failed"_s));
        verifyNothingLost(glinta);
    }

    void snapshotDirectoryReadOnly()
    {
        // The program runs in a mount namespace of its own, where the directory can be made read-only
        // under it; root ignores file modes, so chmod would prove nothing.
        const QString unshare = QStandardPaths::findExecutable(u"unshare"_s);
        const QString nsenter = QStandardPaths::findExecutable(u"nsenter"_s);
        if (unshare.isEmpty() || nsenter.isEmpty())
            QSKIP("needs unshare(1) and nsenter(1) to make the directory read-only under the program");
        const QStringList wrapper{unshare, u"-m"_s, u"--propagation"_s, u"private"_s};
        if (runTool(wrapper.first(), wrapper.mid(1) + QStringList{u"true"_s}).first != 0)
            QSKIP("no private mount namespace can be made here (it takes root)");

        GlintaProcess glinta;
        SimProcess sim(account(), glinta.configDirectory() + u"/service-address.json"_s);
        QVERIFY(sim.start());
        launch(glinta, m_scratch.filePath(u"clock-readonly"_s), wrapper);
        const GlucoseSnapshot before = awaitFirstSnapshot(glinta);
        QVERIFY(before.latest);

        const QString directory = QFileInfo(glinta.snapshotPath()).absolutePath();
        const QStringList inProgram{u"-t"_s, QString::number(glinta.process().processId()), u"-m"_s};
        const auto [mounted, mountSaid] =
            runTool(nsenter,
                    inProgram + QStringList{u"mount"_s, u"--bind"_s, u"-o"_s, u"ro"_s, directory, directory});
        if (mounted != 0)
            QSKIP(qPrintable(u"cannot bind-mount the directory read-only in the program's namespace: "_s +
                             mountSaid));

        // Cycles go on and succeed; only the publishing fails, and says why.
        QTRY_VERIFY2_WITH_TIMEOUT(occurrences(glinta, u"Could not publish widget snapshot: "_s) >= 2,
                                  qPrintable(glinta.output()), 2 * cycleTimeout);
        QVERIFY2(glinta.output().contains(u"Read-only file system"_s), qPrintable(glinta.output()));
        QVERIFY(!glinta.output().contains(u"Refresh failed"_s));
        QCOMPARE(readSnapshot(glinta.snapshotPath()), std::optional(before));
        QCOMPARE(QDir(directory).entryList(QDir::Files), QStringList{u"glucose-snapshot.json"_s});
        verifyNothingLost(glinta);

        const auto [unmounted, unmountSaid] =
            runTool(nsenter, inProgram + QStringList{u"umount"_s, directory});
        QVERIFY2(unmounted == 0, qPrintable(unmountSaid));
        QTRY_VERIFY2_WITH_TIMEOUT(readSnapshot(glinta.snapshotPath()).value_or(before).updatedAt >
                                      before.updatedAt,
                                  qPrintable(glinta.output()), cycleTimeout);
        verifyNothingLost(glinta);
    }

    void wallClockJumpsAnHour()
    {
        GlintaProcess glinta;
        SimProcess sim(account(), glinta.configDirectory() + u"/service-address.json"_s);
        QVERIFY(sim.start());
        const QString clock = m_scratch.filePath(u"clock-jump"_s);
        launch(glinta, clock);
        GlucoseSnapshot last = awaitFirstSnapshot(glinta);
        QVERIFY(last.latest);

        // How far the newest reading lies behind the program's clock, in minutes. The sped-up clock drifts
        // ahead of the service's by a minute or so a cycle, which the bounds allow for.
        const auto ageMinutes = [](const GlucoseSnapshot &snapshot) {
            return snapshot.latest->date.secsTo(snapshot.updatedAt) / 60;
        };
        const qint64 startAge = ageMinutes(last);
        struct Step
        {
            QByteArray setting;
            qint64 fromMinutes;
            qint64 toMinutes;
        };
        for (const Step &step : {Step{"+1h x10", 55, 75}, Step{"+0 x10", -5, 15}}) {
            setClock(clock, step.setting);
            // The first cycle after the jump may have begun before it; the one after surely follows it.
            for (int cycle = 0; cycle < 2; ++cycle) {
                const QDateTime seen = last.updatedAt;
                QTRY_VERIFY2_WITH_TIMEOUT(readSnapshot(glinta.snapshotPath()).value_or(last).updatedAt !=
                                              seen,
                                          qPrintable(glinta.output()), cycleTimeout);
                last = *readSnapshot(glinta.snapshotPath());
            }
            QVERIFY(last.latest);
            const qint64 shift = ageMinutes(last) - startAge;
            qInfo("clock %s: published at %s, the reading %lld min older than at the start",
                  step.setting.constData(), qPrintable(last.updatedAt.toString(Qt::ISODate)),
                  static_cast<long long>(shift));
            QVERIFY2(shift >= step.fromMinutes && shift <= step.toMinutes,
                     qPrintable(u"%1 min after the clock became %2"_s.arg(shift).arg(
                         QString::fromLatin1(step.setting))));
            verifyNothingLost(glinta);
        }
        QVERIFY(!glinta.output().contains(u"Refresh failed"_s));
    }

    // The keyring locks while the program is signed in. Nothing needs it until the service forgets the
    // session; from then on every cycle fails with the keyring's message and the published reading
    // stays, until the keyring opens again and the next cycle signs in by itself.
    void keyringLocked()
    {
        GlintaProcess glinta;
        SimProcess sim(account(), glinta.configDirectory() + u"/service-address.json"_s);
        QVERIFY(sim.start());
        launch(glinta, m_scratch.filePath(u"clock-locked"_s));
        QVERIFY(awaitFirstSnapshot(glinta).latest);

        QVERIFY(m_keyring.lock());
        sim.kill();
        const std::optional<GlucoseSnapshot> kept = readSnapshot(glinta.snapshotPath());
        QVERIFY(kept);
        QVERIFY(sim.start());
        const QString lockedFailure = u"Refresh failed: Keychain error: The keyring is locked."_s;
        QTRY_VERIFY2_WITH_TIMEOUT(occurrences(glinta, lockedFailure) >= 2, qPrintable(glinta.output()),
                                  2 * cycleTimeout);
        QCOMPARE(glinta.process().state(), QProcess::Running);
        QCOMPARE(readSnapshot(glinta.snapshotPath()), kept);

        QVERIFY(m_keyring.unlock());
        QTRY_VERIFY2_WITH_TIMEOUT(readSnapshot(glinta.snapshotPath()).value_or(*kept).updatedAt >
                                      kept->updatedAt,
                                  qPrintable(glinta.output()), 2 * cycleTimeout);
        verifyNothingLost(glinta);
    }

    // The readings request goes wrong in every way the service can, each for an hour of polls, one after
    // the other, then works again. The program's clock runs a hundred times faster for this one, so an
    // hour of polls takes 36 s.
    void everyFaultInTurn()
    {
        constexpr int hourOfPolls = 60;
        GlintaProcess glinta;
        SimProcess sim(account(), glinta.configDirectory() + u"/service-address.json"_s);
        QVERIFY(sim.start());
        launch(glinta, m_scratch.filePath(u"clock-faults"_s), QStringList(), "x100");
        const GlucoseSnapshot before = awaitFirstSnapshot(glinta);
        QVERIFY(before.latest);

        // Served in this order, an hour of requests each; a signed-in cycle asks for the graph alone. A rate
        // limit is answered by backing off (its own drill), so three of those are an hour and more.
        const QList<QJsonObject> faults{
            {{u"kind"_s, u"apiStatus"_s}, {u"apiStatus"_s, 911}},
            {{u"kind"_s, u"httpStatus"_s}, {u"httpStatus"_s, 500}},
            {{u"kind"_s, u"rateLimit"_s}, {u"count"_s, 3}},
            {{u"kind"_s, u"notJson"_s}},
            {{u"kind"_s, u"truncatedBody"_s}},
            {{u"kind"_s, u"wrongType"_s}},
            {{u"kind"_s, u"closeMidBody"_s}},
            {{u"kind"_s, u"hugeBody"_s}},
        };
        const qsizetype failuresBefore = occurrences(glinta, u"Refresh failed: "_s);
        qsizetype failing = 0;
        for (QJsonObject fault : faults) {
            fault.insert(u"path"_s, u"graph"_s);
            if (!fault.contains(u"count"_s))
                fault.insert(u"count"_s, hourOfPolls);
            failing += fault.value(u"count"_s).toInt();
            QVERIFY(sim.control(u"fault"_s, fault));
        }

        // Each fault fails its cycles without touching the reading published, and the loop goes on; the
        // cycle after the last one publishes a newer one. (The no-readings alert that goes off meanwhile
        // publishes the old one again.) A cycle is 0.6 s here, a slow one with a 16 MiB body under the
        // sanitizers a few times that.
        const bool recovered = QTest::qWaitFor(
            [&] {
                const GlucoseSnapshot now = readSnapshot(glinta.snapshotPath()).value_or(before);
                return now.latest && now.latest->date > before.latest->date;
            },
            600000);
        QVERIFY2(recovered, qPrintable(glinta.output()));
        const QStringList failures =
            glinta.output().split(u'\n').filter(u"Refresh failed: "_s).mid(failuresBefore);
        QCOMPARE(failures.size(), failing);
        verifyNothingLost(glinta);
    }

    // A low that holds, with the program's clock and the service's both a hundred times faster: the Low
    // notification goes off, comes again in its place, goes on a snooze from its button and comes back as
    // a new one when the snooze ends, then closes when the value is back in range. How long each wait is
    // is the alert engine's (tst_alertengine).
    void lowAlertNotifies()
    {
        FakeNotifications notifications;
        QVERIFY(notifications.serveOn(QDBusConnection::connectToBus(
            qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"), u"notification-server"_s)));
        GlintaProcess glinta;
        SimProcess sim(account(), glinta.configDirectory() + u"/service-address.json"_s);
        // A clock file of its own: the program's is rewritten under it at the launch.
        const QString simClock = m_scratch.filePath(u"clock-low-service"_s);
        setClock(simClock, "+0 x100");
        useFakeTime(sim.environment, simClock);
        QVERIFY(sim.start());
        QVERIFY(sim.control(u"glucose"_s, {{u"from"_s, 110}, {u"to"_s, 62}, {u"minutes"_s, 5}}));
        launch(glinta, m_scratch.filePath(u"clock-low"_s), QStringList(), "x100");

        // "41 <- 0 Low" for a Low notification handed id 41 in place of none, or "close 41".
        const auto calls = [&notifications] {
            QStringList result;
            for (const QString &call : std::as_const(notifications.calls))
                result.append(call.section(u':', 0, 0));
            return result;
        };
        QStringList expected{u"41 <- 0 Low"_s};
        QTRY_COMPARE_WITH_TIMEOUT(calls(), expected, cycleTimeout);
        QVERIFY2(notifications.calls.first().contains(
                     u" | snooze-30,Snooze 30 min,snooze-120,Snooze 2 h | urgency 2 device "_s),
                 qPrintable(notifications.calls.first()));
        expected.append(u"41 <- 41 Low"_s);
        QTRY_COMPARE_WITH_TIMEOUT(calls(), expected, 2 * cycleTimeout);
        QVERIFY(notifications.invokeAction(41, u"snooze-30"_s));
        expected.append(u"close 41"_s);
        QTRY_COMPARE_WITH_TIMEOUT(calls(), expected, cycleTimeout);
        // The low still holds when the snooze ends: a new notification, since the old one was closed.
        expected.append(u"44 <- 0 Low"_s);
        QTRY_COMPARE_WITH_TIMEOUT(calls(), expected, 3 * cycleTimeout);

        QVERIFY(sim.control(u"glucose"_s, {{u"to"_s, 110}, {u"minutes"_s, 2}}));
        expected.append(u"close 44"_s);
        QTRY_COMPARE_WITH_TIMEOUT(calls(), expected, cycleTimeout);
    }
};

QTEST_GUILESS_MAIN(TestFaultDrills)
#include "tst_faultdrills.moc"
