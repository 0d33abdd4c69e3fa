#include "KeychainStore.h"
#include "TaskOutcome.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QMutex>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <qcoro/qcorotimer.h>
#include <qt6keychain/keychain.h>

#include <algorithm>
#include <cstdio>

extern Q_CORE_EXPORT quintptr qtHookData[];

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;

namespace {

using Attributes = QMap<QString, QString>;
const QString secrets = u"org.freedesktop.secrets"_s;

QCoro::Task<bool> done(QCoro::Task<void> task)
{
    co_await std::move(task);
    co_return true;
}

// One line per outcome, for comparisons and failure messages; it never shows a password.
template <typename T> QString summary(const Outcome<T> &outcome)
{
    if (const auto error = errorAs<KeychainError>(outcome.error))
        return u"error "_s + QString::number(error->code()) + u' ' + error->description();
    if (outcome.error)
        return u"unexpected "_s + QString::fromUtf8(describe(outcome.error));
    if constexpr (std::is_same_v<T, std::optional<QString>>)
        return outcome.value->has_value() ? u"a password"_s : u"none"_s;
    return u"ok"_s;
}

QString summary(QCoro::Task<void> task)
{
    return summary(run(done(std::move(task))));
}

// The keyring's items for a service and account, locked or not, counted without reading a secret.
// "server" and "user" are the attributes QtKeychain gives the service and the account.
int itemCount(const QString &service, const QString &account)
{
    QDBusMessage search = QDBusMessage::createMethodCall(
        secrets, u"/org/freedesktop/secrets"_s, u"org.freedesktop.Secret.Service"_s, u"SearchItems"_s);
    search << QVariant::fromValue(Attributes{{u"server"_s, service}, {u"user"_s, account}});
    const QDBusMessage reply = QDBusConnection::sessionBus().call(search, QDBus::Block, 10000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 2)
        return -1;
    return int(qdbus_cast<QList<QDBusObjectPath>>(reply.arguments().at(0)).size() +
               qdbus_cast<QList<QDBusObjectPath>>(reply.arguments().at(1)).size());
}

QByteArray secretTool(const QStringList &arguments, const QByteArray &input = {})
{
    QProcess tool;
    tool.start(u"secret-tool"_s, arguments);
    tool.write(input);
    tool.closeWriteChannel();
    if (!tool.waitForFinished(10000))
        tool.kill();
    return tool.readAllStandardOutput();
}

// Holds every call, as a keyring waiting on a prompt does, until told to refuse them all.
class SilentSecretService : public QDBusVirtualObject
{
public:
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        if (m_refusing)
            connection.send(message.createErrorReply(QDBusError::Failed, u"The fake keyring refuses."_s));
        else
            m_held.append(message);
        return true;
    }
    QString introspect(const QString &) const override { return {}; }
    void refuseAll()
    {
        m_refusing = true;
        for (const QDBusMessage &message : std::exchange(m_held, {}))
            handleMessage(message, QDBusConnection::sessionBus());
    }

private:
    QList<QDBusMessage> m_held;
    bool m_refusing = false;
};

// Every QObject alive, through the hooks that debugging tools use (indices from Qt's qhooks_p.h), so a
// child can tell whether a job it gave up on was deleted once it finished.
QMutex objectsMutex;
QSet<QObject *> objects;

bool trackObjects()
{
    constexpr int hookDataSize = 1, addQObject = 3, removeQObject = 4;
    if (qtHookData[hookDataSize] <= removeQObject)
        return false;
    qtHookData[addQObject] = reinterpret_cast<quintptr>(+[](QObject *object) {
        QMutexLocker lock(&objectsMutex);
        objects.insert(object);
    });
    qtHookData[removeQObject] = reinterpret_cast<quintptr>(+[](QObject *object) {
        QMutexLocker lock(&objectsMutex);
        objects.remove(object);
    });
    return true;
}

qsizetype liveJobs()
{
    QMutexLocker lock(&objectsMutex);
    return std::count_if(objects.cbegin(), objects.cend(),
                         [](QObject *object) { return object->inherits("QKeychain::Job"); });
}

const QString loginCollection = u"/org/freedesktop/secrets/collection/login"_s;

// gnome-keyring takes a moment to come up and unlock its collection.
bool awaitUnlockedKeyring()
{
    QDBusMessage get = QDBusMessage::createMethodCall(secrets, loginCollection,
                                                      u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    get << u"org.freedesktop.Secret.Collection"_s << u"Locked"_s;
    return QTest::qWaitFor(
        [&] {
            const QDBusMessage reply = QDBusConnection::sessionBus().call(get, QDBus::Block, 2000);
            return reply.type() == QDBusMessage::ReplyMessage &&
                   !reply.arguments().value(0).value<QDBusVariant>().variant().toBool();
        },
        10000);
}

bool lockKeyring()
{
    QDBusMessage lock = QDBusMessage::createMethodCall(secrets, u"/org/freedesktop/secrets"_s,
                                                       u"org.freedesktop.Secret.Service"_s, u"Lock"_s);
    lock << QVariant::fromValue(QList<QDBusObjectPath>{QDBusObjectPath(loginCollection)});
    return QDBusConnection::sessionBus().call(lock, QDBus::Block, 5000).type() == QDBusMessage::ReplyMessage;
}

// The failure paths run in a child process, because QtKeychain and libsecret choose their bus once
// per process. Each prints one line per step.
int childMain(const QByteArray &mode)
{
    const bool tracking = trackObjects();
    const QString account = u"child@example.com"_s;
    auto say = [](const QString &step, const QString &what) {
        std::printf("%s: %s\n", qPrintable(step), qPrintable(what));
        std::fflush(stdout);
    };
    if (mode == "unavailable") {
        const KeychainStore store(u"com.nordvik.glinta.librelinkup.test-child"_s, 5s);
        say(u"save"_s, summary(store.savePassword(u"child-password"_s, account)));
        say(u"read"_s, summary(run(store.readPassword(account))));
        say(u"delete"_s, summary(store.deletePassword(account)));
    } else if (mode == "locked") {
        QProcess keyring;
        keyring.start(u"gnome-keyring-daemon"_s,
                      {u"--foreground"_s, u"--unlock"_s, u"--components=secrets"_s});
        keyring.write("child-keyring-password");
        keyring.closeWriteChannel();
        if (!awaitUnlockedKeyring())
            say(u"keyring"_s, u"did not come up unlocked"_s);
        const KeychainStore store(u"com.nordvik.glinta.librelinkup.test-child"_s, 5s);
        say(u"save"_s, summary(store.savePassword(u"child-password"_s, account)));
        if (!lockKeyring())
            say(u"keyring"_s, u"could not be locked"_s);
        say(u"read"_s, summary(run(store.readPassword(account))));
        say(u"save while locked"_s, summary(store.savePassword(u"other-password"_s, account)));
        say(u"delete"_s, summary(store.deletePassword(account)));
        keyring.terminate();
        keyring.waitForFinished(5000);
    } else if (mode == "unresponsive") {
        SilentSecretService service;
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (!bus.registerVirtualObject(u"/"_s, &service, QDBusConnection::SubPath) ||
            !bus.registerService(secrets))
            say(u"fake keyring"_s, u"could not take the bus name"_s);
        const KeychainStore store(u"com.nordvik.glinta.librelinkup.test-child"_s, 1s);
        QElapsedTimer clock;
        clock.start();
        say(u"read"_s, summary(run(store.readPassword(account))));
        say(u"answered in time"_s, clock.elapsed() < 3000 ? u"yes"_s : u"no"_s);
        // The abandoned job now gets its answer while no one waits for it any more.
        service.refuseAll();
        run(done(QCoro::sleepFor(500ms)));
        say(u"read after the late answer"_s, summary(run(store.readPassword(account))));
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    say(u"jobs alive"_s, tracking ? QString::number(liveJobs()) : u"unknown"_s);
    return EXIT_SUCCESS;
}

} // namespace

class TestKeychainStore : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qDBusRegisterMetaType<Attributes>();
        const QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
        QVERIFY2(bus && bus->isServiceRegistered(secrets),
                 "no Secret Service on the session bus: run the tests with ./test.sh");
    }

    void init()
    {
        m_service = u"com.nordvik.glinta.librelinkup.test-"_s +
                    QString::number(QRandomGenerator::global()->generate64(), 36);
    }

    void cleanup()
    {
        secretTool({u"clear"_s, u"server"_s, m_service});
        secretTool({u"clear"_s, u"server"_s, m_service + u".other"_s});
    }

    void errorDescription_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("description");
        QTest::newRow("the keyring's message")
            << int(QKeychain::AccessDenied) << u"Cannot create an item in a locked collection"_s
            << u"Keychain error: Cannot create an item in a locked collection"_s;
        QTest::newRow("no message") << int(QKeychain::OtherError) << u" "_s << u"Keychain error: status 7"_s;
    }

    void errorDescription()
    {
        QFETCH(int, code);
        QFETCH(QString, message);
        QFETCH(QString, description);
        const KeychainError error = KeychainError::unexpectedStatus(code, message);
        QCOMPARE(error.description(), description);
    }

    void saveReplacesAndReads_data()
    {
        QTest::addColumn<QString>("password");
        QTest::newRow("ASCII") << u"s3cret-Passw0rd!"_s;
        QTest::newRow("non-ASCII") << u"pässwörd ✓ 🔑"_s;
        QTest::newRow("leading byte-order mark") << u"\uFEFFmark"_s;
        QTest::newRow("empty") << QString();
    }

    void saveReplacesAndReads()
    {
        QFETCH(QString, password);
        const KeychainStore store(m_service);
        const QString account = u"someone@example.com"_s;
        QCOMPARE(summary(store.savePassword(u"earlier-password"_s, account)), u"ok"_s);
        QCOMPARE(summary(store.savePassword(password, account)), u"ok"_s);
        QCOMPARE(itemCount(m_service, account), 1);
        const auto read = run(store.readPassword(account));
        QCOMPARE(summary(read), u"a password"_s);
        QVERIFY2(**read.value == password, "the password read back is not the one saved last");
        // Other keyring tools show the password itself, not an encoding of it.
        QVERIFY2(secretTool({u"lookup"_s, u"server"_s, m_service, u"user"_s, account}) == password.toUtf8(),
                 "secret-tool shows something other than the password");
    }

    void accountsAndServicesAreIndependent()
    {
        const KeychainStore store(m_service);
        const KeychainStore otherService(m_service + u".other"_s);
        const QString a = u"a@example.com"_s;
        const QString b = u"b@example.com"_s;
        QCOMPARE(summary(run(store.readPassword(a))), u"none"_s);
        QCOMPARE(summary(store.savePassword(u"password-a"_s, a)), u"ok"_s);
        QCOMPARE(summary(store.savePassword(u"password-b"_s, b)), u"ok"_s);
        QCOMPARE(summary(otherService.savePassword(u"password-b-elsewhere"_s, b)), u"ok"_s);
        QCOMPARE(itemCount(m_service, b), 1);
        QCOMPARE(summary(store.deletePassword(b)), u"ok"_s);
        QCOMPARE(itemCount(m_service, b), 0);
        QCOMPARE(summary(run(store.readPassword(b))), u"none"_s);
        QCOMPARE(summary(store.deletePassword(b)), u"ok"_s); // a missing item
        const auto readA = run(store.readPassword(a));
        QVERIFY2(readA.value && *readA.value == u"password-a"_s, qPrintable(summary(readA)));
        const auto elsewhere = run(otherService.readPassword(b));
        QVERIFY2(elsewhere.value && *elsewhere.value == u"password-b-elsewhere"_s,
                 qPrintable(summary(elsewhere)));
    }

    void invalidUtf8ReadsAsNone()
    {
        const QString account = u"bytes@example.com"_s;
        secretTool({u"store"_s, u"--label=not text"_s, u"server"_s, m_service, u"user"_s, account, u"type"_s,
                    u"plaintext"_s},
                   "\xff\xfe not text \x80");
        QCOMPARE(itemCount(m_service, account), 1);
        QCOMPARE(summary(run(KeychainStore(m_service).readPassword(account))), u"none"_s);
    }

    void unstorableTextIsRefused_data()
    {
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("account");
        // Cut at the null character, this account would be the kept one.
        QTest::newRow("null character in the account")
            << u"new-password"_s << u"kept@example.com"_s + QChar(0) + u"x"_s;
        QTest::newRow("null character in the password")
            << u"new"_s + QChar(0) + u"tail"_s << u"kept@example.com"_s;
        QTest::newRow("unpaired surrogate in the password")
            << QString(QChar(0xD800)) + u"tail"_s << u"kept@example.com"_s;
    }

    void unstorableTextIsRefused()
    {
        QFETCH(QString, password);
        QFETCH(QString, account);
        const KeychainStore store(m_service);
        const QString kept = u"kept@example.com"_s;
        QCOMPARE(summary(store.savePassword(u"kept-password"_s, kept)), u"ok"_s);

        const QRegularExpression refused(
            u"^error 7 Keychain error: The (password|account name) contains a character the keyring cannot store\\.$"_s);
        QVERIFY2(refused.match(summary(store.savePassword(password, account))).hasMatch(),
                 "the save was not refused");
        if (account != kept) {
            QVERIFY(refused.match(summary(run(store.readPassword(account)))).hasMatch());
            QVERIFY(refused.match(summary(store.deletePassword(account))).hasMatch());
        }
        QCOMPARE(itemCount(m_service, kept), 1);
        const auto read = run(store.readPassword(kept));
        QVERIFY2(read.value && *read.value == u"kept-password"_s, "the kept password changed");
    }

    void failures_data()
    {
        QTest::addColumn<QByteArray>("mode");
        QTest::addColumn<bool>("bus");
        QTest::addColumn<bool>("homeStaysEmpty");
        QTest::addColumn<QStringList>("expected"); // a pattern per line the child prints

        const QString noBus = u"error 7 Keychain error: .+"_s;
        QTest::newRow("no session bus") << "unavailable"_ba << false << true
                                        << QStringList{u"save: "_s + noBus, u"read: "_s + noBus,
                                                       u"delete: "_s + noBus, u"jobs alive: 0"_s};
        const QString noService = u"error 7 Keychain error: .*org\\.freedesktop\\.secrets.*"_s;
        QTest::newRow("no Secret Service on the bus")
            << "unavailable"_ba << true << true
            << QStringList{u"save: "_s + noService, u"read: "_s + noService, u"delete: "_s + noService,
                           u"jobs alive: 0"_s};
        const QString locked = u"error -2 Keychain error: The keyring is locked\\."_s;
        QTest::newRow("locked collection")
            << "locked"_ba << true << false
            << QStringList{u"save: ok"_s, u"read: "_s + locked,
                           u"save while locked: error 4 Keychain error: .*locked.*"_s, u"delete: "_s + locked,
                           u"jobs alive: 0"_s};
        QTest::newRow("keyring that never answers")
            << "unresponsive"_ba << true << true
            << QStringList{
                   u"read: error -1 Keychain error: The keyring did not answer in time\\."_s,
                   u"answered in time: yes"_s,
                   u"read after the late answer: error 7 Keychain error: The fake keyring refuses\\."_s,
                   u"jobs alive: 0"_s};
    }

    void failures()
    {
        QFETCH(QByteArray, mode);
        QFETCH(bool, bus);
        QFETCH(bool, homeStaysEmpty);
        QFETCH(QStringList, expected);
        const QString runSession = QStandardPaths::findExecutable(u"dbus-run-session"_s);
        if (bus && runSession.isEmpty())
            QSKIP("dbus-run-session is not installed (package dbus)");
        if (mode == "locked" && QStandardPaths::findExecutable(u"gnome-keyring-daemon"_s).isEmpty())
            QSKIP("gnome-keyring-daemon is not installed (package gnome-keyring)");

        QTemporaryDir dir;
        const QString home = dir.filePath(u"home"_s);
        const QString runtime = dir.filePath(u"run"_s);
        QVERIFY(dir.isValid() && QDir().mkpath(home) && QDir().mkdir(runtime));
        QVERIFY(QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        // The XDG directories fall back to the private home. No display either: a keyring would prompt
        // on it, and D-Bus would start a bus for it.
        for (const char *name : {"DBUS_SESSION_BUS_ADDRESS", "DISPLAY", "XAUTHORITY", "XDG_CONFIG_HOME",
                                 "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME"})
            environment.remove(QString::fromLatin1(name));
        environment.insert(u"HOME"_s, home);
        environment.insert(u"XDG_RUNTIME_DIR"_s, runtime);
        environment.insert(u"GLINTA_KEYCHAIN_CHILD"_s, QString::fromLatin1(mode));

        QProcess child;
        child.setProcessEnvironment(environment);
        if (bus) {
            // A bus of its own that can start nothing: it has no service directories.
            QFile config(dir.filePath(u"bus.conf"_s));
            QVERIFY(config.open(QIODevice::WriteOnly));
            config.write(
                "<busconfig><type>session</type><listen>unix:dir=" + dir.path().toUtf8() +
                "</listen><auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination=\"*\" "
                "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n");
            config.close();
            child.start(runSession, {u"--config-file="_s + config.fileName(), u"--"_s,
                                     QCoreApplication::applicationFilePath()});
        } else {
            child.start(QCoreApplication::applicationFilePath(), {});
        }
        const bool finished = child.waitForFinished(30000);
        if (!finished)
            child.kill();
        QVERIFY2(finished, "the child did not finish within 30 s");
        QVERIFY2(child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0,
                 child.readAllStandardError().constData());

        const QStringList lines =
            QString::fromUtf8(child.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
        QVERIFY2(lines.size() == expected.size(), qPrintable(lines.join(u" | "_s)));
        for (qsizetype i = 0; i < lines.size(); ++i) {
            const QRegularExpression pattern(QRegularExpression::anchoredPattern(expected.at(i)));
            QVERIFY2(pattern.match(lines.at(i)).hasMatch(), qPrintable(lines.at(i)));
        }
        if (homeStaysEmpty) {
            QDirIterator files(home, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
            QVERIFY2(!files.hasNext(), qPrintable(u"written: "_s + files.next()));
        }
    }

private:
    QString m_service;
};

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (const QByteArray mode = qgetenv("GLINTA_KEYCHAIN_CHILD"); !mode.isEmpty())
        return childMain(mode);
    TestKeychainStore test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_keychainstore.moc"
