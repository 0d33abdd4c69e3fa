#include "PrivateKeyring.h"
#include "TaskOutcome.h"
#include "TestSupport.h"
#include "persistence/KeychainStore.h"

#include <QDBusVirtualObject>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QStandardPaths>

#include <qt6keychain/keychain.h>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;

namespace {

const QString secrets = u"org.freedesktop.secrets"_s;

// One line per outcome, for comparisons and failure messages.
QString outcome(QCoro::Task<void> task)
{
    const std::exception_ptr error = runToEnd(std::move(task));
    return error ? u"error: "_s + QString::fromUtf8(describe(error)) : u"ok"_s;
}

QString outcome(QCoro::Task<std::optional<QString>> task)
{
    const Outcome<std::optional<QString>> read = run(std::move(task));
    if (read.error)
        return u"error: "_s + QString::fromUtf8(describe(read.error));
    return *read.value ? u"password "_s + **read.value : u"none"_s;
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

// "server" and "user" are the attributes QtKeychain gives the service and the account.
qsizetype itemCount(const QString &service, const QString &account)
{
    return secretTool({u"search"_s, u"--all"_s, u"server"_s, service, u"user"_s, account}).count("[/");
}

// Holds every call, as a keyring waiting on a prompt does, until told to refuse them all.
struct SilentSecretService : QDBusVirtualObject
{
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        held.append(message);
        if (refusing)
            refuseAll(connection);
        return true;
    }
    QString introspect(const QString &) const override { return {}; }
    void refuseAll(const QDBusConnection &connection)
    {
        refusing = true;
        for (const QDBusMessage &message : std::exchange(held, {}))
            connection.send(message.createErrorReply(QDBusError::Failed, u"The fake keyring refuses."_s));
    }

    QList<QDBusMessage> held;
    bool refusing = false;
};

// The failure paths, in a child on a private bus (QtKeychain and libsecret pick their bus once per
// process), a line per step; a job leaked or deleted too early fails its exit under the sanitizers.
int childMain(const QByteArray &mode)
{
    const QString account = u"child@example.com"_s;
    const auto say = [](const char *step, const QString &what) {
        std::printf("%s: %s\n", step, qPrintable(what));
        std::fflush(stdout);
    };
    std::optional<PrivateSessionBus> bus;
    std::optional<PrivateKeyring> keyring;
    if (!(mode == "locked" ? keyring.emplace().start() : bus.emplace().start()))
        say("setup", u"no private bus"_s);
    const KeychainStore store(u"com.nordvik.glinta.librelinkup.test-child"_s,
                              mode == "unresponsive" ? 1s : 5s);
    if (mode != "unresponsive") {
        say("save", outcome(store.savePassword(u"child-password"_s, account)));
        if (keyring && !keyring->lock())
            say("keyring", u"could not be locked"_s);
        say("read", outcome(store.readPassword(account)));
        say("save again", outcome(store.savePassword(u"other-password"_s, account)));
        say("delete", outcome(store.deletePassword(account)));
    } else {
        SilentSecretService service;
        QDBusConnection session = QDBusConnection::sessionBus();
        session.registerVirtualObject(u"/"_s, &service, QDBusConnection::SubPath);
        session.registerService(secrets);
        QElapsedTimer clock;
        clock.start();
        say("read", outcome(store.readPassword(account)) + (clock.elapsed() < 3000 ? u""_s : u" (late)"_s));
        // The abandoned job now gets its answer while no one waits for it any more.
        service.refuseAll(session);
        QTest::qWait(500);
        say("read after the late answer", outcome(store.readPassword(account)));
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return EXIT_SUCCESS;
}

} // namespace

class TestKeychainStore : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        const QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
        QVERIFY2(bus && bus->isServiceRegistered(secrets),
                 "no Secret Service on the session bus: run the tests with ./test.sh");
    }

    void cleanup() { secretTool({u"clear"_s, u"server"_s, m_service}); }

    // A message is the failure rows' part; without one the status stands in.
    void blankMessage()
    {
        QCOMPARE(KeychainError::unexpectedStatus(QKeychain::OtherError, u" "_s).description(),
                 u"Keychain error: status 7"_s);
    }

    // A leading byte-order mark is kept like any other character; what the keyring cannot hold is refused.
    void savesReadsAndDeletes()
    {
        const KeychainStore store(m_service);
        const QString account = u"someone@example.com"_s;
        for (const QString &password : {u"pässwörd ✓ 🔑"_s, u"\uFEFFmark"_s}) {
            QCOMPARE(outcome(store.savePassword(u"earlier-password"_s, account)), u"ok"_s);
            QCOMPARE(outcome(store.savePassword(password, account)), u"ok"_s);
            QCOMPARE(itemCount(m_service, account), 1);
            QCOMPARE(outcome(store.readPassword(account)), u"password "_s + password);
            // Other keyring tools show the password itself, not an encoding of it.
            QCOMPARE(secretTool({u"lookup"_s, u"server"_s, m_service, u"user"_s, account}),
                     password.toUtf8());
            QCOMPARE(outcome(store.deletePassword(account)), u"ok"_s);
            QCOMPARE(outcome(store.deletePassword(account)), u"ok"_s); // a missing item
            QCOMPARE(itemCount(m_service, account), 0);
        }

        const QString a = u"a@example.com"_s;
        QCOMPARE(outcome(store.readPassword(a)), u"none"_s);
        QCOMPARE(outcome(store.savePassword(u"password-a"_s, a)), u"ok"_s);

        // libsecret takes C strings: cut at the null character, this account name would address a's item.
        const QString refused =
            u"error: Keychain error: The %1 contains a character the keyring cannot store."_s;
        const QString cut = a + QChar(0) + u"x"_s;
        const QStringList refusals{outcome(store.savePassword(u"new"_s, cut)),
                                   outcome(store.readPassword(cut)), outcome(store.deletePassword(cut)),
                                   outcome(store.savePassword(u"new"_s + QChar(0), a)),
                                   outcome(store.savePassword(QString(QChar(0xD800)), a))};
        QCOMPARE(refusals,
                 QStringList(3, refused.arg(u"account name"_s)) + QStringList(2, refused.arg(u"password"_s)));
        QCOMPARE(outcome(store.readPassword(a)), u"password password-a"_s);

        // Data that is not UTF-8 text, as another tool may leave it, is no password.
        secretTool({u"store"_s, u"--label=bytes"_s, u"server"_s, m_service, u"user"_s, a}, "\xff\xfe \x80");
        QCOMPARE(outcome(store.readPassword(a)), u"none"_s);
    }

    void failures_data()
    {
        // expected: a pattern per line the child prints
        columns<QByteArray, QStringList>("mode", "expected");

        const QString noService = u"error: Keychain error: .*org\\.freedesktop\\.secrets.*"_s;
        QTest::newRow("no Secret Service on the bus")
            << "unavailable"_ba
            << QStringList{u"save: "_s + noService, u"read: "_s + noService, u"save again: "_s + noService,
                           u"delete: "_s + noService};
        // gnome-keyring answers a search in a locked collection as if there were no item.
        const QString locked = u"error: Keychain error: The keyring is locked\\."_s;
        QTest::newRow("locked collection")
            << "locked"_ba
            << QStringList{u"save: ok"_s, u"read: "_s + locked,
                           u"save again: error: Keychain error: .*locked.*"_s, u"delete: "_s + locked};
        QTest::newRow("keyring that never answers")
            << "unresponsive"_ba
            << QStringList{
                   u"read: error: Keychain error: The keyring did not answer in time\\."_s,
                   u"read after the late answer: error: Keychain error: The fake keyring refuses\\."_s};
    }

    void failures()
    {
        const auto [mode, expected] = fetch<QByteArray, QStringList>("mode", "expected");
        if (QStandardPaths::findExecutable(u"dbus-daemon"_s).isEmpty() ||
            QStandardPaths::findExecutable(u"gnome-keyring-daemon"_s).isEmpty())
            QSKIP("needs dbus-daemon and gnome-keyring-daemon");

        QTemporaryDir dir;
        const QString home = dir.filePath(u"home"_s);
        QVERIFY(dir.isValid() && QDir().mkpath(home));
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        // The XDG directories fall back to the private home. No display either: a keyring would prompt
        // on it, and D-Bus would start a bus for it.
        for (const char *name : {"DBUS_SESSION_BUS_ADDRESS", "DISPLAY", "XAUTHORITY", "XDG_CONFIG_HOME",
                                 "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME"})
            environment.remove(QString::fromLatin1(name));
        environment.insert(u"HOME"_s, home);
        environment.insert(u"XDG_RUNTIME_DIR"_s, dir.path());
        environment.insert(u"GLINTA_KEYCHAIN_CHILD"_s, QString::fromLatin1(mode));

        QProcess child;
        child.setProcessEnvironment(environment);
        child.start(QCoreApplication::applicationFilePath());
        if (!child.waitForFinished(30000))
            child.kill();
        QVERIFY2(child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0,
                 child.readAllStandardError().constData());

        const QString output = QString::fromUtf8(child.readAllStandardOutput()).trimmed();
        const QRegularExpression pattern(QRegularExpression::anchoredPattern(expected.join(u'\n')));
        QVERIFY2(pattern.match(output).hasMatch(), qPrintable(output));
        // Without a keyring to take it, the password must not land in a file instead.
        if (mode != "locked") {
            QDirIterator files(home, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
            QVERIFY2(!files.hasNext(), qPrintable(u"written: "_s + files.next()));
        }
    }

private:
    const QString m_service = u"com.nordvik.glinta.librelinkup.test-"_s +
                              QString::number(QRandomGenerator::global()->generate64(), 36);
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
