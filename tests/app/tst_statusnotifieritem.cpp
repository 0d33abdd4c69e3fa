// Glinta's own StatusNotifierItem, as a tray host sees it over D-Bus: what it reads, what it is told on a
// change, what its clicks do, and a watcher that restarts.
#include "FakeStatusNotifierWatcher.h"
#include "LiveStore.h"
#include "PrivateSessionBus.h"
#include "app/StatusItem.h"
#include "menubar/MenuBarLabel.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QLabel>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;

class TestStatusNotifierItem : public QObject
{
    Q_OBJECT

public Q_SLOTS:
    void newLabel(const QString &label, const QString &) { labels.append(label); }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(bus.start() && bus.connection().registerService(watcherName) &&
                bus.connection().registerObject(u"/StatusNotifierWatcher"_s, &watcher,
                                                QDBusConnection::ExportScriptableContents));
    }

    void hostReadsTheTitleAndClicksReachThePanel()
    {
        LiveStore live;
        QCoro::Task<void> signIn = live.store->signIn(live.account().email, live.account().password);
        QTRY_COMPARE(live.store->status().kind, GlucoseStore::Status::Kind::active);
        MenuBarLabel label(live.store.get(), live.preferences.get());
        StatusItem item(&label, live.preferences.get(), ownItemOnly());
        item.show(0ms);
        QTRY_VERIFY(item.usesOwnItem());
        QCOMPARE(watcher.items.size(), 1);
        service = watcher.items[0].section(u'/', 0, 0);
        QVERIFY(bus.connection().connect(service, itemPath, itemInterface, u"XAyatanaNewLabel"_s, this,
                                         SLOT(newLabel(QString, QString))));
        QCOMPARE(read(u"Id"_s), u"glinta"_s);
        QCOMPARE(read(u"Status"_s), u"Active"_s);
        // Without a menu path, GNOME's AppIndicator never shows the item.
        QCOMPARE(read(u"Menu"_s).value<QDBusObjectPath>().path(), u"/NO_DBUSMENU"_s);

        // Each change reaches the host as the title's own text, and a signal says so.
        using Shows = std::function<bool(const MenuBarTitle &)>;
        const QList<std::pair<std::function<void()>, Shows>> steps{
            {[] {}, [](const MenuBarTitle &t) { return !t.value.contains(u'.') && !t.isStale; }},
            {[&] { live.store->setUnit(GlucoseUnit::mmolPerL); },
             [](const MenuBarTitle &t) { return t.value.contains(u'.'); }},
            {[&] { live.clock.advance(16min); },
             [](const MenuBarTitle &t) { return t.text.contains(u"\u26A0\uFE0E"_s); }},
            {[&] { live.preferences->setAvailableUpdateVersion(u"9.9"_s); },
             [](const MenuBarTitle &t) { return t.text.endsWith(u"\u2022"_s); }},
        };
        for (const auto &[change, shows] : steps) {
            change();
            QTRY_COMPARE(read(u"XAyatanaLabel"_s), label.title().text);
            QVERIFY2(shows(label.title()), qPrintable(label.title().text));
            QCOMPARE(read(u"XAyatanaLabelGuide"_s), label.title().labelGuide);
            QCOMPARE(toolTip(), (QStringList{label.title().text, label.title().accessibilityLabel}));
        }
        QTRY_COMPARE(labels.size(), 3);
        QCOMPARE(labels.last(), label.title().text);

        // Icon only: the designed picture, at every size offered.
        live.preferences->setShowReadingAsText(false);
        QTRY_COMPARE(read(u"XAyatanaLabel"_s), QString());
        QCOMPARE(labels.last(), QString());
        QCOMPARE(
            call(QDBusMessage::createMethodCall(service, itemPath, itemInterface, u"Activate"_s) << 10 << 10)
                .type(),
            QDBusMessage::ReplyMessage);
        QTRY_VERIFY(item.panelWindow()->isVisible());

        // A restarted shell's watcher knows nothing of the item until it registers again.
        QVERIFY(bus.connection().unregisterService(watcherName));
        QTRY_VERIFY(!item.usesOwnItem());
        QVERIFY(bus.connection().registerService(watcherName));
        QTRY_VERIFY(item.usesOwnItem());
        QCOMPARE(watcher.items.size(), 2);
    }

    // A host that refuses the item leaves Qt's tray item, or here, with no tray, the panel as a window.
    void refusedByTheHost()
    {
        watcher.refuses = true;
        LiveStore live;
        MenuBarLabel label(live.store.get(), live.preferences.get());
        StatusItem item(&label, live.preferences.get(), ownItemOnly());
        item.show(0ms);
        QTRY_VERIFY(item.usesFallbackWindow());
        QVERIFY(!item.usesOwnItem());
        watcher.refuses = false;
    }

private:
    // A stand-in panel and Glinta's own item, on the session bus the test made.
    static StatusItem::Parts ownItemOnly()
    {
        StatusItem::Parts parts;
        parts.makePanel = [] { return new QLabel(u"panel"_s); };
        parts.ownItem = std::make_unique<StatusNotifierItem>();
        return parts;
    }

    // The item answers from this thread, so the call must not block it.
    QDBusMessage call(const QDBusMessage &message) const
    {
        QDBusPendingCall pending = bus.connection().asyncCall(message);
        if (!QTest::qWaitFor([&] { return pending.isFinished(); }, 10000))
            qWarning("No answer from the item");
        return pending.reply();
    }

    QVariant read(const QString &property) const
    {
        QDBusMessage get =
            QDBusMessage::createMethodCall(service, itemPath, u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
        get << itemInterface << property;
        return call(get).arguments().value(0).value<QDBusVariant>().variant();
    }

    // The tooltip's title and text; (s a(iiay) s s) on the wire.
    QStringList toolTip() const
    {
        const auto argument = read(u"ToolTip"_s).value<QDBusArgument>();
        QString iconName, title, text;
        argument.beginStructure();
        argument >> iconName;
        argument.beginArray();
        while (!argument.atEnd()) {
            int width = 0, height = 0;
            QByteArray pixels;
            argument.beginStructure();
            argument >> width >> height >> pixels;
            argument.endStructure();
        }
        argument.endArray();
        argument >> title >> text;
        argument.endStructure();
        return {title, text};
    }

    inline static const QString watcherName = u"org.kde.StatusNotifierWatcher"_s;
    inline static const QString itemPath = u"/StatusNotifierItem"_s;
    inline static const QString itemInterface = u"org.kde.StatusNotifierItem"_s;

    PrivateSessionBus bus;
    FakeStatusNotifierWatcher watcher;
    QString service;
    QStringList labels;
};

QTEST_MAIN(TestStatusNotifierItem)
#include "tst_statusnotifieritem.moc"
