// The real program signed in to glinta-sim, then the service killed, the snapshot directory read-only, the
// keyring locked, the clock moved: it must keep running and what it saved, and pick up again by itself.
// libfaketime runs its clock ten times faster (timerfd pauses too): a one-minute cycle takes six seconds.
#include "FakeNotifications.h"
#include "GlintaProcess.h"
#include "PrivateKeyring.h"
#include "TaskOutcome.h"
#include "persistence/KeychainStore.h"
#include "snapshot/GlucoseSnapshot.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QStandardPaths>
#include <QTcpServer>

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
    SimProcess(const QString &account, const QString &addressFile)
        : m_arguments{u"--account"_s, account, u"--address-file"_s, addressFile}
    {
        m_process.setProcessChannelMode(QProcess::MergedChannels);
    }
    ~SimProcess() { kill(); }

    // On a free port, the same one again after kill(): to the program the service comes back where it was.
    bool start()
    {
        QTcpServer probe;
        if (m_port == 0 && probe.listen(QHostAddress::LocalHost))
            m_port = probe.serverPort();
        probe.close();
        m_process.setProcessEnvironment(environment);
        m_process.start(QStringLiteral(GLINTA_SIM_PROGRAM),
                        QStringList{u"--port"_s, QString::number(m_port)} + m_arguments);
        QByteArray said;
        while (!said.contains("listening on") && m_process.waitForReadyRead(20000))
            said += m_process.readAll();
        if (!said.contains("listening on"))
            qWarning("glinta-sim did not come up: %s", said.constData());
        return said.contains("listening on");
    }

    // A command of its control interface, such as "fault" with a fault's description; true when taken.
    bool control(const QString &command, const QJsonObject &body = {})
    {
        QNetworkAccessManager network;
        QNetworkRequest request(QUrl(u"http://127.0.0.1:%1/_sim/%2"_s.arg(m_port).arg(command)));
        request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
        QNetworkReply *reply = network.post(request, QJsonDocument(body).toJson());
        const bool answered = QTest::qWaitFor([reply] { return reply->isFinished(); }, 10000);
        const bool ok = answered && reply->error() == QNetworkReply::NoError;
        delete reply;
        return ok;
    }

    void kill()
    {
        m_process.kill();
        m_process.waitForFinished(5000);
    }

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();

private:
    QStringList m_arguments;
    quint16 m_port = 0;
    QProcess m_process;
};

std::optional<GlucoseSnapshot> readSnapshot(const QString &path)
{
    QFile file(path);
    try {
        return file.open(QIODevice::ReadOnly) ? std::optional(decodeSnapshot(file.readAll())) : std::nullopt;
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
    std::unique_ptr<GlintaProcess> glinta;
    std::unique_ptr<SimProcess> sim;
    QString m_clock;

    // Signed in from a previous launch (e-mail saved, password in the keyring), on libfaketime's clock.
    void launch(const QStringList &wrapper = {}, const QByteArray &speed = "x10")
    {
        setClock(m_clock, "+0 " + speed);
        glinta->setPreference(u"libreLinkUpEmail"_s, m_email);
        useFakeTime(glinta->environment, m_clock);
        glinta->start(wrapper);
    }

    // The service started and the program launched; the first snapshot it publishes.
    GlucoseSnapshot up(const QStringList &wrapper = {}, const QByteArray &speed = "x10")
    {
        // In range whatever the time of day: an alert would publish the snapshot again mid-drill.
        if (!sim->start() ||
            !sim->control(u"glucose"_s, {{u"from"_s, 110}, {u"to"_s, 110}, {u"minutes"_s, 1}}))
            return {};
        launch(wrapper, speed);
        std::optional<GlucoseSnapshot> snapshot;
        (void)QTest::qWaitFor([&] { return (snapshot = published()) && snapshot->latest; }, cycleTimeout);
        if (!snapshot || !snapshot->latest)
            qWarning("No snapshot was published:\n%s", qPrintable(glinta->output()));
        return snapshot.value_or(GlucoseSnapshot());
    }

    static void setClock(const QString &clockFile, const QByteArray &setting)
    {
        QFile file(clockFile);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(setting + '\n');
    }

    std::optional<GlucoseSnapshot> published() const { return readSnapshot(glinta->snapshotPath()); }

    bool publishesAfter(const GlucoseSnapshot &than, int timeout)
    {
        return QTest::qWaitFor([&] { return published().value_or(than).updatedAt > than.updatedAt; },
                               timeout);
    }

    // What the user saved is still there: the e-mail in the preferences, the password in the keyring.
    void verifyNothingLost()
    {
        QCOMPARE(glinta->process().state(), QProcess::Running);
        QSettings settings(glinta->configDirectory() + u"/glinta.conf"_s, QSettings::IniFormat);
        QCOMPARE(settings.value(u"libreLinkUpEmail"_s).toString(), m_email);
        const Outcome<std::optional<QString>> password = run(m_keychain.readPassword(m_email));
        QVERIFY2(!password.error, describe(password.error).constData());
        QCOMPARE(password.value->value_or(QString()), m_password);
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

    void init()
    {
        glinta = std::make_unique<GlintaProcess>();
        const QString account = m_email + u':' + m_password + u":eu"_s;
        sim = std::make_unique<SimProcess>(account, glinta->configDirectory() + u"/service-address.json"_s);
        m_clock = m_scratch.filePath(QString::fromLatin1(QTest::currentTestFunction()));
    }

    void cleanup()
    {
        sim.reset();
        glinta.reset();
    }

    void cleanupTestCase() { runToEnd(m_keychain.deletePassword(m_email)); }

    void serviceKilledAndRestarted()
    {
        const GlucoseSnapshot before = up();
        QVERIFY(before.latest);

        // The service goes away mid-session: cycles fail, twice over, and the published reading stays.
        sim->kill();
        QTRY_VERIFY2_WITH_TIMEOUT(glinta->output().count(u"Refresh failed: "_s) >= 2,
                                  qPrintable(glinta->output()), 2 * cycleTimeout);
        QVERIFY2(glinta->output().contains(u"Refresh failed: Could not connect to the server."_s),
                 qPrintable(glinta->output()));
        QCOMPARE(published(), std::optional(before));

        // Back on the same port, forgetting the old session: the program signs in again and publishes.
        QVERIFY(sim->start());
        QVERIFY2(publishesAfter(before, cycleTimeout), qPrintable(glinta->output()));
        QTRY_VERIFY2_WITH_TIMEOUT(glinta->output().contains(u"Session expired; signing in again"_s),
                                  qPrintable(glinta->output()), 5000);
        QVERIFY(!glinta->output().contains(u"Login failed"_s));
        verifyNothingLost();
    }

    void snapshotDirectoryReadOnly()
    {
        // In a mount namespace of its own the directory can be made read-only; root ignores chmod.
        const QString unshare = QStandardPaths::findExecutable(u"unshare"_s);
        const QString nsenter = QStandardPaths::findExecutable(u"nsenter"_s);
        if (unshare.isEmpty() || nsenter.isEmpty())
            QSKIP("needs unshare(1) and nsenter(1) to make the directory read-only under the program");
        const QStringList wrapper{unshare, u"-m"_s, u"--propagation"_s, u"private"_s};
        if (runTool(wrapper.first(), wrapper.mid(1) + QStringList{u"true"_s}).first != 0)
            QSKIP("no private mount namespace can be made here (it takes root)");

        const GlucoseSnapshot before = up(wrapper);
        QVERIFY(before.latest);
        const QString directory = QFileInfo(glinta->snapshotPath()).absolutePath();
        const QStringList inProgram{u"-t"_s, QString::number(glinta->process().processId()), u"-m"_s};
        const auto [mounted, mountSaid] =
            runTool(nsenter,
                    inProgram + QStringList{u"mount"_s, u"--bind"_s, u"-o"_s, u"ro"_s, directory, directory});
        if (mounted != 0)
            QSKIP(qPrintable(u"cannot bind-mount the directory read-only in the program's namespace: "_s +
                             mountSaid));

        // Cycles go on and succeed; only the publishing fails, and says why.
        QTRY_VERIFY2_WITH_TIMEOUT(glinta->output().count(u"Could not publish widget snapshot: "_s) >= 2,
                                  qPrintable(glinta->output()), 2 * cycleTimeout);
        QVERIFY2(glinta->output().contains(u"Read-only file system"_s), qPrintable(glinta->output()));
        QVERIFY(!glinta->output().contains(u"Refresh failed"_s));
        QCOMPARE(published(), std::optional(before));
        QCOMPARE(QDir(directory).entryList(QDir::Files), QStringList{u"glucose-snapshot.json"_s});

        const auto [unmounted, unmountSaid] =
            runTool(nsenter, inProgram + QStringList{u"umount"_s, directory});
        QVERIFY2(unmounted == 0, qPrintable(unmountSaid));
        QVERIFY2(publishesAfter(before, cycleTimeout), qPrintable(glinta->output()));
        verifyNothingLost();
    }

    void wallClockJumpsAnHour()
    {
        GlucoseSnapshot last = up();
        QVERIFY(last.latest);

        // Minutes the newest reading lies behind the program's clock; the bounds allow for the clock's drift.
        const auto ageMinutes = [](const GlucoseSnapshot &snapshot) {
            return snapshot.latest->date.secsTo(snapshot.updatedAt) / 60;
        };
        const qint64 startAge = ageMinutes(last);
        for (const auto &[setting, fromMinutes, toMinutes] :
             {std::tuple{"+1h x10"_ba, 55, 75}, std::tuple{"+0 x10"_ba, -5, 15}}) {
            setClock(m_clock, setting);
            // The first cycle after the jump may have begun before it; the one after surely follows it.
            for (int cycle = 0; cycle < 2; ++cycle) {
                const QDateTime seen = last.updatedAt;
                QTRY_VERIFY2_WITH_TIMEOUT(published().value_or(last).updatedAt != seen,
                                          qPrintable(glinta->output()), cycleTimeout);
                last = *published();
            }
            QVERIFY(last.latest);
            const qint64 shift = ageMinutes(last) - startAge;
            QVERIFY2(
                shift >= fromMinutes && shift <= toMinutes,
                qPrintable(u"%1 min after the clock became %2"_s.arg(shift).arg(QLatin1StringView(setting))));
            verifyNothingLost();
        }
        QVERIFY(!glinta->output().contains(u"Refresh failed"_s));
    }

    // The keyring locks while signed in; once the service forgets the session every cycle fails with the
    // keyring's message and the reading stays, until the keyring opens and a cycle signs in by itself.
    void keyringLocked()
    {
        QVERIFY(up().latest);
        QVERIFY(m_keyring.lock());
        sim->kill();
        const std::optional<GlucoseSnapshot> kept = published();
        QVERIFY(kept && sim->start());
        QTRY_VERIFY2_WITH_TIMEOUT(
            glinta->output().count(u"Refresh failed: Keychain error: The keyring is locked."_s) >= 2,
            qPrintable(glinta->output()), 2 * cycleTimeout);
        QCOMPARE(glinta->process().state(), QProcess::Running);
        QCOMPARE(published(), kept);

        QVERIFY(m_keyring.unlock());
        QVERIFY2(publishesAfter(*kept, 2 * cycleTimeout), qPrintable(glinta->output()));
        verifyNothingLost();
    }

    // The readings request goes wrong in every way the service can, an hour of polls each, then works again;
    // the program's clock runs a hundred times faster here, so an hour of polls takes 36 s.
    void everyFaultInTurn()
    {
        constexpr int hourOfPolls = 60;
        const GlucoseSnapshot before = up({}, "x100");
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
        const qsizetype failuresBefore = glinta->output().count(u"Refresh failed: "_s);
        qsizetype failing = 0;
        for (QJsonObject fault : faults) {
            fault.insert(u"path"_s, u"graph"_s);
            if (!fault.contains(u"count"_s))
                fault.insert(u"count"_s, hourOfPolls);
            failing += fault.value(u"count"_s).toInt();
            QVERIFY(sim->control(u"fault"_s, fault));
        }

        // Each fault fails its cycles and leaves the published reading (the no-readings alert only publishes
        // it again); the cycle after the last publishes a newer one. A cycle takes 0.6 s, longer at 16 MiB.
        const bool recovered = QTest::qWaitFor(
            [&] {
                const GlucoseSnapshot now = published().value_or(before);
                return now.latest && now.latest->date > before.latest->date;
            },
            600000);
        QVERIFY2(recovered, qPrintable(glinta->output()));
        const QStringList failures =
            glinta->output().split(u'\n').filter(u"Refresh failed: "_s).mid(failuresBefore);
        QCOMPARE(failures.size(), failing);
        verifyNothingLost();
    }

    // A holding low, both clocks a hundred times faster: notified, renewed in place, snoozed from its button,
    // back as a new one after the snooze, closed back in range. The waits themselves are tst_alertengine's.
    void lowAlertNotifies()
    {
        FakeNotifications notifications;
        QVERIFY(notifications.serveOn(QDBusConnection::connectToBus(
            qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"), u"notification-server"_s)));
        // A clock file of its own: the program's is rewritten under it at the launch.
        const QString simClock = m_clock + u"-service"_s;
        setClock(simClock, "+0 x100");
        useFakeTime(sim->environment, simClock);
        QVERIFY(sim->start());
        QVERIFY(sim->control(u"glucose"_s, {{u"from"_s, 110}, {u"to"_s, 62}, {u"minutes"_s, 5}}));
        launch({}, "x100");

        // "41 <- 0 Low" for a Low notification handed id 41 in place of none, or "close 41".
        const auto calls = [&notifications] {
            QStringList result;
            for (const QString &call : std::as_const(notifications.calls))
                result.append(call.section(u':', 0, 0));
            return result;
        };
        QStringList expected{u"41 <- 0 Low"_s};
        QTRY_COMPARE_WITH_TIMEOUT(calls(), expected, cycleTimeout);
        expected.append(u"41 <- 41 Low"_s);
        QTRY_COMPARE_WITH_TIMEOUT(calls(), expected, 2 * cycleTimeout);
        QVERIFY(notifications.invokeAction(41, u"snooze-30"_s));
        expected.append(u"close 41"_s);
        QTRY_COMPARE_WITH_TIMEOUT(calls(), expected, cycleTimeout);
        // The low still holds when the snooze ends: a new notification, since the old one was closed.
        expected.append(u"44 <- 0 Low"_s);
        QTRY_COMPARE_WITH_TIMEOUT(calls(), expected, 3 * cycleTimeout);

        QVERIFY(sim->control(u"glucose"_s, {{u"to"_s, 110}, {u"minutes"_s, 2}}));
        expected.append(u"close 44"_s);
        QTRY_COMPARE_WITH_TIMEOUT(calls(), expected, cycleTimeout);
    }
};

QTEST_GUILESS_MAIN(TestFaultDrills)
#include "tst_faultdrills.moc"
