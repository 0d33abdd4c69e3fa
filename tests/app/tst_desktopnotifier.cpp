#include "FakeNotifications.h"
#include "PrivateSessionBus.h"
#include "app/DesktopNotifier.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;

class TestDesktopNotifier : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // One notification per kind, closed when it ends; snooze actions come back; no server: the fallback.
    void notifies()
    {
        PrivateSessionBus bus;
        QVERIFY(bus.start());
        QDBusConnection server = QDBusConnection::connectToBus(bus.address(), u"server"_s);
        FakeNotifications fake;
        QVERIFY(fake.serveOn(server));

        QList<QString> fallen;
        QImage icon(4, 4, QImage::Format_ARGB32);
        icon.fill(Qt::red);
        // On the private bus, which start() made the session's.
        DesktopNotifier notifier(
            icon, [&fallen](const DesktopNotifier::Notice &notice) { fallen.append(notice.summary); });
        QSignalSpy snoozes(&notifier, &DesktopNotifier::snoozeRequested);
        notifier.show(AlertKind::low, {u"Low: 62 ↘"_s, u"Ann Lee · 2 min ago"_s, true, true});
        QTRY_COMPARE(fake.calls.size(), 1);
        notifier.show(AlertKind::high, {u"High: 190 ↗"_s, u"Ann Lee · 1 min ago"_s, false, false});
        QTRY_COMPARE(fake.calls.size(), 2);
        notifier.close(AlertKind::low);
        const QString actions = u"snooze-30,Snooze 30 min,snooze-120,Snooze 2 h"_s;
        QTRY_COMPARE(fake.calls, (QStringList{u"41 <- 0 Low: 62 ↘ | Ann Lee · 2 min ago | "_s + actions +
                                                  u" | urgency 2 device dialog-warning icon"_s,
                                              u"42 <- 0 High: 190 ↗ | Ann Lee · 1 min ago | "_s + actions +
                                                  u" | urgency 1 device  icon"_s,
                                              u"close 41"_s}));

        QVERIFY(fake.invokeAction(42, u"snooze-120"_s));
        QTRY_COMPARE(snoozes.count(), 1);
        QCOMPARE(snoozes.at(0).at(0).value<AlertKind>(), AlertKind::high);
        QCOMPARE(snoozes.at(0).at(1).value<std::chrono::minutes>(), 120min);

        QVERIFY(server.unregisterService(u"org.freedesktop.Notifications"_s));
        notifier.show(AlertKind::urgentLow, {u"Urgent low: 51 ↓"_s, QString(), true, true});
        QTRY_COMPARE(fallen, QList<QString>{u"Urgent low: 51 ↓"_s});
    }
};

QTEST_GUILESS_MAIN(TestDesktopNotifier)
#include "tst_desktopnotifier.moc"
