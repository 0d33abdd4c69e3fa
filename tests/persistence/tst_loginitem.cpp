#include "TestSupport.h"
#include "persistence/LoginItem.h"

using namespace Qt::StringLiterals;
using namespace glinta;

#ifndef GLINTA_PORTABLE
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
#endif

class TestLoginItem : public QObject
{
    Q_OBJECT

    std::optional<QTemporaryDir> m_temporary;

    QString path(const QString &name) const { return m_temporary->filePath(name); }

private Q_SLOTS:
    void init() { QVERIFY(m_temporary.emplace().isValid()); }

#ifdef GLINTA_PORTABLE
    // Settings hides its switch; a change that gets through anyway is refused and writes nothing.
    void notAvailable()
    {
        QCOMPARE(LoginItem().status(), LoginItem::Status::notAvailable);
        LoginItem item(m_temporary->path(), u"/usr/bin/glinta"_s);
        QCOMPARE(item.status(), LoginItem::Status::notAvailable);
        QVERIFY_THROWS_EXCEPTION(LoginItemError, item.registerItem());
        QVERIFY_THROWS_EXCEPTION(LoginItemError, item.unregisterItem());
        QCOMPARE(QDir(m_temporary->path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    }
#else
    void registerAndUnregister_data()
    {
        columns<QString, QString>("program", "exec");

        QTest::newRow("space") << u"/opt/My Apps/glinta"_s << u"\"/opt/My Apps/glinta\""_s;
        // Escaped inside the quotes, and the backslashes once more as any string value's.
        QTest::newRow("quote, dollar, backtick, backslash")
            << u"/opt/a\"b$c`d\\e/glinta"_s << u"\"/opt/a\\\\\"b\\\\$c\\\\`d\\\\\\\\e/glinta\""_s;
        QTest::newRow("percent is no field code") << u"/opt/100%/glinta"_s << u"/opt/100%%/glinta"_s;
    }

    void registerAndUnregister()
    {
        const auto [program, exec] = fetch<QString, QString>("program", "exec");

        // Missing on purpose: registering makes it.
        const QString autostart = path(u"config/autostart"_s);
        LoginItem item(autostart, program);
        item.registerItem();
        QCOMPARE(item.status(), LoginItem::Status::enabled);
        QCOMPARE(readFile(item.filePath()),
                 u"[Desktop Entry]\nType=Application\nName=Glinta\n"
                 u"Comment=Your LibreLinkUp glucose reading in the system tray\nExec="_s +
                     exec +
                     u"\nIcon=com.nordvik.glinta\nTerminal=false\n"
                     u"X-GNOME-Autostart-enabled=true\nNoDisplay=false\n"_s);
        // XDG: a directory an application makes is the user's alone.
        QCOMPARE(QFile::permissions(autostart) & ~(QFile::ReadUser | QFile::WriteUser | QFile::ExeUser),
                 QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

        // Registering over an entry the desktop switched off switches it on again; already gone is success.
        QVERIFY(writeFile(item.filePath(), "[Desktop Entry]\nHidden=true\n"));
        item.registerItem();
        QCOMPARE(item.status(), LoginItem::Status::enabled);
        item.unregisterItem();
        item.unregisterItem();
        QCOMPARE(item.status(), LoginItem::Status::notRegistered);
        QCOMPARE(QDir(autostart).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    }

    void statusReadsTheEntry_data()
    {
        columns<QByteArray, LoginItem::Status>("contents", "status");

        const auto enabled = LoginItem::Status::enabled, notRegistered = LoginItem::Status::notRegistered;
        QTest::newRow("hidden, spaced") << "[Desktop Entry]\nHidden = true\n"_ba << notRegistered;
        QTest::newRow("GNOME switch off")
            << "[Desktop Entry]\nX-GNOME-Autostart-enabled=false\n"_ba << notRegistered;
        QTest::newRow("hidden in another group")
            << "[Desktop Entry]\nExec=glinta\n[Desktop Action quit]\nHidden=true\n"_ba << enabled;
    }

    void statusReadsTheEntry()
    {
        const auto [contents, status] = fetch<QByteArray, LoginItem::Status>("contents", "status");

        LoginItem item(m_temporary->path(), u"/usr/bin/glinta"_s);
        QVERIFY(writeFile(item.filePath(), contents));
        QCOMPARE(item.status(), status);
    }

    // Fails for root too, which ignores permissions; a directory under a file is tst_panel's case.
    void entryNameTakenByADirectory()
    {
        LoginItem item(m_temporary->path(), u"/usr/bin/glinta"_s);
        QVERIFY(QDir().mkpath(item.filePath()));
        QCOMPARE(errorOf([&] { item.registerItem(); }), u"Filename refers to a directory"_s);
        QCOMPARE(item.status(), LoginItem::Status::notRegistered);
    }
#endif
};

QTEST_GUILESS_MAIN(TestLoginItem)
#include "tst_loginitem.moc"
