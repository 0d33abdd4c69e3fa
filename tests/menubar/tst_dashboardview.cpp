#include "DashboardView.h"
#include "GlucosePanelView.h"
#include "GlucoseSnapshot.h"
#include "LiveStore.h"
#include "SignInPromptView.h"
#include "StaticUnitPicker.h"
#include "SymbolLabel.h"
#include "SystemStyle.h"
#include "Updater.h"
#include "WindowRegistry.h"

#include <QButtonGroup>
#include <QLabel>
#include <QMenu>
#include <QSignalSpy>
#include <QTest>
#include <QTimeZone>
#include <QToolButton>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;
using glinta::sim::Fault;
using Kind = GlucoseStore::Status::Kind;

namespace {

const QDateTime taken(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::utc());

class FakeUpdater : public Updater
{
public:
    bool canCheck = true;
    int checks = 0;
    bool canCheckForUpdates() const override { return canCheck; }
    void checkForUpdates() override { ++checks; }
};

GlucoseReading reading(double mgPerDl, std::optional<TrendArrow> trend = {}, bool isHigh = false,
                       bool isLow = false)
{
    return {taken, mgPerDl, trend, isHigh, isLow};
}

std::unique_ptr<GlucoseStore> fixedStore(std::optional<GlucoseReading> latest)
{
    GlucoseSnapshot snapshot;
    snapshot.latest = latest;
    if (latest)
        snapshot.history = {*latest};
    return GlucoseStore::fromSnapshot(snapshot);
}

QString text(const QWidget *root, const QString &name)
{
    const auto *label = root->findChild<QLabel *>(name);
    return label ? label->text() : u"<missing>"_s;
}

bool shows(const QWidget *root, const QString &name)
{
    const auto *widget = root->findChild<QWidget *>(name);
    return widget && widget->isVisible();
}

} // namespace

class TestDashboardView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The colour of the value and the stale mark, judged by the wall clock again when the dashboard appears.
    void valueAndStaleness_data()
    {
        QTest::addColumn<GlucoseReading>("latest");
        QTest::addColumn<qint64>("ageMs");
        QTest::addColumn<QString>("tint");
        QTest::addColumn<bool>("stale");
        QTest::newRow("65") << reading(65) << 60'000LL << u"red"_s << false;
        QTest::newRow("70, exactly 900 s") << reading(70) << 900'000LL << u"primary"_s << false;
        QTest::newRow("180 steady, 900 s and 1 ms")
            << reading(180, TrendArrow::steady) << 900'001LL << u"primary"_s << true;
        QTest::newRow("181") << reading(181) << 0LL << u"orange"_s << false;
        QTest::newRow("100 flagged low")
            << reading(100, TrendArrow::risingQuickly, false, true) << 0LL << u"red"_s << false;
        QTest::newRow("150 flagged high") << reading(150, {}, true) << 0LL << u"orange"_s << false;
    }

    void valueAndStaleness()
    {
        QFETCH(GlucoseReading, latest);
        QFETCH(qint64, ageMs);
        QFETCH(QString, tint);
        const auto store = fixedStore(latest);
        QDateTime wall = taken;
        DashboardView dashboard(store.get(), nullptr, false, nullptr);
        dashboard.setWallClock([&wall] { return wall; });
        wall = taken.addMSecs(ageMs);
        dashboard.show();
        QTEST(shows(&dashboard, u"stale"_s), "stale");
        // Both schemes, so that a palette change recolours what is already there.
        const auto *value = dashboard.findChild<QLabel *>(u"value"_s);
        for (const QPalette &palette : {style::lightPalette(), style::darkPalette()}) {
            dashboard.setPalette(palette);
            const QColor expected = tint == u"red"_s      ? style::red(palette)
                                    : tint == u"orange"_s ? style::orange(palette)
                                                          : style::primaryText(palette);
            QCOMPARE(value->palette().color(QPalette::WindowText), expected);
        }
        // No trend, no arrow.
        const auto *arrow = dashboard.findChild<QLabel *>(u"trend"_s);
        QCOMPARE(arrow->isVisible(), latest.trend.has_value());
        QCOMPARE(arrow->accessibleName(), latest.trend ? spokenName(*latest.trend) : QString());
    }

    void ageTicksOnlyWhileShown()
    {
        const auto store = fixedStore(reading(120));
        QDateTime wall = taken.addSecs(252);
        DashboardView dashboard(store.get(), nullptr, false, nullptr);
        dashboard.setWallClock([&wall] { return wall; });
        dashboard.show();
        QCOMPARE(text(&dashboard, u"age"_s), u"4 min, 12 sec ago"_s);
        wall = wall.addSecs(1);
        QTRY_COMPARE_WITH_TIMEOUT(text(&dashboard, u"age"_s), u"4 min, 13 sec ago"_s, 2000);
        dashboard.hide();
        wall = wall.addSecs(10);
        QTest::qWait(1200);
        QCOMPARE(text(&dashboard, u"age"_s), u"4 min, 13 sec ago"_s);
    }

    // Waiting while connecting, then the data in the same widgets, then a failure that keeps it.
    void followsTheStore()
    {
        LiveStore live;
        live.service.addFault({u"login"_s, Fault::Kind::delay, 0, 0, {}, {}, 300ms, 1, {}});
        QCoro::Task<void> signIn = live.store->signIn(live.account().email, live.account().password);
        DashboardView dashboard(live.store.get(), nullptr, false, nullptr);
        QDateTime wall = live.clock.now();
        dashboard.setWallClock([&wall] { return wall; });
        dashboard.show();
        QCOMPARE(text(&dashboard, u"waiting"_s), u"Waiting for data…"_s);
        QVERIFY(shows(&dashboard, u"waiting"_s) && shows(&dashboard, u"spinner"_s));
        QVERIFY(!shows(&dashboard, u"value"_s) && !shows(&dashboard, u"failure"_s) &&
                !shows(&dashboard, u"stale"_s));

        QTRY_COMPARE(live.store->status().kind, Kind::active);
        const GlucoseReading latest = *live.store->latest();
        QVERIFY(!shows(&dashboard, u"waiting"_s) && !shows(&dashboard, u"stale"_s));
        QCOMPARE(text(&dashboard, u"value"_s), format(GlucoseUnit::mgPerDl, latest.mgPerDl));
        QCOMPARE(text(&dashboard, u"readingCount"_s), QString::number(live.store->history().size()));

        live.service.addFault({u"graph"_s, Fault::Kind::httpStatus, 500, 0, {}, {}, 0ms, -1, {}});
        wall = latest.date.addSecs(901); // nothing re-reads the clock until the store changes
        QTest::mouseClick(dashboard.findChild<QToolButton *>(u"refresh"_s), Qt::LeftButton);
        QTRY_COMPARE(live.store->status().kind, Kind::failed);
        const auto *failure = dashboard.findChild<SymbolLabel *>(u"failure"_s);
        QVERIFY(failure->isVisible());
        QCOMPARE(failure->text(), live.store->status().message);
        QCOMPARE(text(&dashboard, u"value"_s), format(GlucoseUnit::mgPerDl, latest.mgPerDl));
        QVERIFY(shows(&dashboard, u"stale"_s));
    }

    void unitPicker()
    {
        const auto store = fixedStore(reading(100));
        DashboardView dashboard(store.get(), nullptr, false, nullptr);
        DashboardView picture(store.get(), nullptr, true, nullptr);
        dashboard.show();
        const QList<QAbstractButton *> segments = dashboard.findChild<QButtonGroup *>()->buttons();
        QCOMPARE(segments.size(), 2);
        QCOMPARE(segments[0]->text() + segments[1]->text(), u"mg/dLmmol/L"_s);
        QVERIFY(segments[0]->isChecked());
        QVERIFY(!picture.findChild<QButtonGroup *>());

        QTest::mouseClick(segments[1], Qt::LeftButton);
        QCOMPARE(store->unit(), GlucoseUnit::mmolPerL);
        QCOMPARE(text(&dashboard, u"value"_s) + text(&dashboard, u"unit"_s), u"5.5mmol/L"_s);
        QCOMPARE(text(&dashboard, u"average"_s), u"5.5"_s);
        QCOMPARE(picture.findChild<StaticUnitPicker *>()->unit(), GlucoseUnit::mmolPerL);

        // The store moving on its own moves the selection.
        store->setUnit(GlucoseUnit::mgPerDl);
        QVERIFY(segments[0]->isChecked() && !segments[1]->isChecked());
        QCOMPARE(picture.findChild<StaticUnitPicker *>()->unit(), GlucoseUnit::mgPerDl);
    }

    void gearMenu_data()
    {
        QTest::addColumn<bool>("hasUpdater");
        QTest::addColumn<bool>("canCheck");
        QTest::addColumn<bool>("declared");
        QTest::newRow("everything available") << true << true << true;
        QTest::newRow("a check is running") << true << false << true;
        QTest::newRow("no updater, no windows yet") << false << true << false;
    }

    void gearMenu()
    {
        QFETCH(bool, hasUpdater);
        QFETCH(bool, canCheck);
        QFETCH(bool, declared);
        const auto store = fixedStore(std::nullopt);
        FakeUpdater updater;
        updater.canCheck = canCheck;
        WindowRegistry windows;
        const QStringList ids{u"about"_s, u"whats-new"_s, u"settings"_s};
        for (const QString &id : declared ? ids : QStringList())
            windows.declare(id, id, [] { return new QLabel; });
        DashboardView dashboard(store.get(), hasUpdater ? &updater : nullptr, false, &windows);
        QSignalSpy quit(&dashboard, &DashboardView::quitRequested);
        QSignalSpy opened(&windows, &WindowRegistry::opened);
        const std::unique_ptr<QMenu> menu(dashboard.buildGearMenu());

        QStringList items;
        QList<bool> enabled;
        for (const QAction *action : menu->actions()) {
            items.append(action->text() + u'|' + action->shortcut().toString(QKeySequence::PortableText));
            enabled.append(action->isEnabled());
        }
        QCOMPARE(items, (QStringList{u"About Glinta|"_s, u"Check for Updates…|"_s, u"What's New…|"_s, u"|"_s,
                                     u"Settings…|Ctrl+,"_s, u"|"_s, u"Quit Glinta|Ctrl+Q"_s}));
        QCOMPARE(enabled,
                 (QList<bool>{declared, hasUpdater && canCheck, declared, true, declared, true, true}));

        // Each item does what it says, in menu order: the windows open through the registry.
        for (QAction *action : menu->actions())
            action->trigger();
        QStringList order;
        for (const QList<QVariant> &call : std::as_const(opened))
            order.append(call.at(0).toString());
        QCOMPARE(order, declared ? ids : QStringList());
        QCOMPARE(updater.checks, hasUpdater && canCheck ? 1 : 0);
        QCOMPARE(quit.size(), 1);
    }

    // Qt leaves the shortcuts of a free-standing menu to the widget it hangs from; this one answers them.
    void shortcutInTheOpenMenu()
    {
        const auto store = fixedStore(std::nullopt);
        WindowRegistry windows;
        windows.declare(u"settings"_s, u"settings"_s, [] { return new QLabel; });
        DashboardView dashboard(store.get(), nullptr, false, &windows);
        const std::unique_ptr<QMenu> menu(dashboard.buildGearMenu());
        menu->popup(QPoint(20, 20));
        QVERIFY(QTest::qWaitForWindowExposed(menu.get()));
        QTest::keyClick(menu->windowHandle(), Qt::Key_Comma, Qt::ControlModifier);
        QVERIFY(windows.window(u"settings"_s));
        QVERIFY(!menu->isVisible());
    }

    void panelFollowsSignIn()
    {
        LiveStore live;
        GlucosePanelView panel(live.store.get(), live.preferences.get(), nullptr, false, nullptr);
        QSignalSpy quit(&panel, &GlucosePanelView::quitRequested);
        const QPointer<SignInPromptView> prompt = qobject_cast<SignInPromptView *>(panel.content());
        QVERIFY(prompt);

        // Connecting without a saved e-mail is still nobody signed in.
        live.service.addFault({u"login"_s, Fault::Kind::delay, 0, 0, {}, {}, 100ms, 1, {}});
        QCoro::Task<void> signIn = live.store->signIn(live.account().email, live.account().password);
        QCOMPARE(live.store->status().kind, Kind::connecting);
        QCOMPARE(panel.content(), prompt.data());
        Q_EMIT prompt->quitRequested();
        QCOMPARE(quit.size(), 1);

        QTRY_VERIFY(qobject_cast<DashboardView *>(panel.content()));
        QTRY_VERIFY(!prompt);
        const QPointer<DashboardView> dashboard = qobject_cast<DashboardView *>(panel.content());
        Q_EMIT dashboard->quitRequested();
        QCOMPARE(quit.size(), 2);

        // Status changes that keep someone signed in keep the same dashboard.
        live.service.addFault({u"graph"_s, Fault::Kind::httpStatus, 500, 0, {}, {}, 0ms, -1, {}});
        QCoro::Task<void> failing = live.store->refresh();
        QTRY_COMPARE(live.store->status().kind, Kind::failed);
        live.service.clearFaults();
        QCoro::Task<void> recovering = live.store->refresh();
        QTRY_COMPARE(live.store->status().kind, Kind::active);
        QCOMPARE(panel.content(), dashboard.data());

        live.store->signOut();
        QVERIFY(qobject_cast<SignInPromptView *>(panel.content()));
        QTRY_VERIFY(!dashboard);
    }

    // An e-mail is saved but the keyring has no password for it: the store ends up logged out.
    void panelShowsThePromptWhenThePasswordIsMissing()
    {
        LiveStore live;
        live.preferences->setLibreLinkUpEmail(live.account().email);
        GlucoseStore store(GlucoseStore::Services{live.client.get(), &live.keychain, live.snapshots.get(),
                                                  live.preferences.get(), &live.widgets, &live.clock,
                                                  BuildInfo{u"1.3.5"_s, u"1"_s}});
        GlucosePanelView panel(&store, live.preferences.get(), nullptr, false, nullptr);
        store.start();
        QTRY_COMPARE(store.status().kind, Kind::loggedOut);
        QVERIFY(store.savedEmail());
        QVERIFY(qobject_cast<SignInPromptView *>(panel.content()));
    }
};

QTEST_MAIN(TestDashboardView)
#include "tst_dashboardview.moc"