#include "LoginItem.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <memory>

#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

bool writeFile(const QString &path, const QByteArray &contents)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size();
}

QString readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

} // namespace

class TestLoginItem : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> temporary;

    QString path(const QString &name) const { return temporary->filePath(name); }
    // Missing on purpose: registering makes it.
    QString autostart() const { return path(u"config/autostart"_s); }

private Q_SLOTS:
    void init()
    {
        temporary = std::make_unique<QTemporaryDir>();
        QVERIFY(temporary->isValid());
    }
    void cleanup() { temporary.reset(); }

    void registerWritesTheEntry_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("exec");

        QTest::newRow("plain path") << u"/usr/bin/glinta"_s << u"/usr/bin/glinta"_s;
        QTest::newRow("space") << u"/opt/My Apps/glinta"_s << u"\"/opt/My Apps/glinta\""_s;
        // Escaped inside the quotes, and the backslashes once more as any string value's.
        QTest::newRow("quote, dollar, backtick")
            << u"/opt/a\"b$c`d/glinta"_s << u"\"/opt/a\\\\\"b\\\\$c\\\\`d/glinta\""_s;
        QTest::newRow("backslash") << u"/opt/a\\b/glinta"_s << u"\"/opt/a\\\\\\\\b/glinta\""_s;
        QTest::newRow("percent is no field code") << u"/opt/100%/glinta"_s << u"/opt/100%%/glinta"_s;
    }

    void registerWritesTheEntry()
    {
        QFETCH(QString, program);
        QFETCH(QString, exec);

        LoginItem item(autostart(), program);
        QCOMPARE(item.status(), LoginItem::Status::notRegistered);
        item.registerItem();
        QCOMPARE(item.status(), LoginItem::Status::enabled);
        QCOMPARE(readFile(autostart() + u"/glinta.desktop"_s),
                 u"[Desktop Entry]\n"
                 u"Type=Application\n"
                 u"Name=Glinta\n"
                 u"Comment=Your LibreLinkUp glucose reading in the system tray\n"
                 u"Exec="_s +
                     exec +
                     u"\n"
                     u"Icon=com.nordvik.glinta\n"
                     u"Terminal=false\n"
                     u"X-GNOME-Autostart-enabled=true\n"
                     u"NoDisplay=false\n"_s);
        // XDG: a directory an application makes is the user's alone.
        const QFile::Permissions made = QFile::permissions(autostart());
        QVERIFY(made.testFlags(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QVERIFY(!(made & (QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther |
                          QFile::WriteOther | QFile::ExeOther)));
    }

    void registerReplacesAndUnregisterRemoves()
    {
        LoginItem item(autostart(), u"/usr/bin/glinta"_s);
        QVERIFY(QDir().mkpath(autostart()));
        QVERIFY(writeFile(item.filePath(), "[Desktop Entry]\nHidden=true\n"));
        QCOMPARE(item.status(), LoginItem::Status::notRegistered);

        // Registering over an entry the desktop switched off switches it on again.
        item.registerItem();
        QCOMPARE(item.status(), LoginItem::Status::enabled);
        item.unregisterItem();
        QCOMPARE(item.status(), LoginItem::Status::notRegistered);
        QVERIFY(!QFile::exists(item.filePath()));
        // Already gone is success.
        item.unregisterItem();
        QCOMPARE(QDir(autostart()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    }

    void statusReadsTheEntry_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<LoginItem::Status>("status");

        const auto enabled = LoginItem::Status::enabled;
        const auto notRegistered = LoginItem::Status::notRegistered;
        QTest::newRow("plain entry") << QByteArray("[Desktop Entry]\nType=Application\nExec=glinta\n")
                                     << enabled;
        QTest::newRow("hidden") << QByteArray("[Desktop Entry]\nExec=glinta\nHidden=true\n") << notRegistered;
        QTest::newRow("hidden, spaced") << QByteArray("[Desktop Entry]\nHidden = true\n") << notRegistered;
        QTest::newRow("GNOME switch off")
            << QByteArray("[Desktop Entry]\nX-GNOME-Autostart-enabled=false\n") << notRegistered;
        QTest::newRow("hidden in another group")
            << QByteArray("[Desktop Entry]\nExec=glinta\n[Desktop Action quit]\nHidden=true\n") << enabled;
        QTest::newRow("commented out") << QByteArray("[Desktop Entry]\n# Hidden=true\n") << enabled;
    }

    void statusReadsTheEntry()
    {
        QFETCH(QByteArray, contents);
        QFETCH(LoginItem::Status, status);

        LoginItem item(temporary->path(), u"/usr/bin/glinta"_s);
        QVERIFY(writeFile(item.filePath(), contents));
        QCOMPARE(item.status(), status);
    }

    void refusedRegistration_data()
    {
        QTest::addColumn<QString>("directory");
        QTest::addColumn<QString>("reason");

        // These two fail for root too, which ignores permissions.
        QTest::newRow("directory under a file") << u"file/autostart"_s << qt_error_string(ENOTDIR);
        QTest::newRow("entry name taken by a directory") << u"taken"_s << u"Filename refers to a directory"_s;
        if (::geteuid() != 0)
            QTest::newRow("read-only directory") << u"readonly"_s << qt_error_string(EACCES);
    }

    void refusedRegistration()
    {
        QFETCH(QString, directory);
        QFETCH(QString, reason);

        QVERIFY(writeFile(path(u"file"_s), "not a directory"));
        QVERIFY(QDir().mkpath(path(u"taken/glinta.desktop"_s)));
        QVERIFY(QDir().mkpath(path(u"readonly"_s)));
        QVERIFY(QFile::setPermissions(path(u"readonly"_s), QFile::ReadOwner | QFile::ExeOwner));

        LoginItem item(path(directory), u"/usr/bin/glinta"_s);
        try {
            item.registerItem();
            QFAIL("registering succeeded");
        } catch (const LoginItemError &error) {
            QCOMPARE(error.description(), reason);
        }
        QCOMPARE(item.status(), LoginItem::Status::notRegistered);
        QVERIFY(QFile::setPermissions(path(u"readonly"_s),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }
};

QTEST_GUILESS_MAIN(TestLoginItem)
#include "tst_loginitem.moc"
