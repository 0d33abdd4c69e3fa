#include "DashboardView.h"
#include "GlucoseChartView.h"
#include "GlucosePanelView.h"
#include "GlucoseSnapshot.h"
#include "LiveStore.h"
#include "SignInPromptView.h"
#include "StaticUnitPicker.h"
#include "SymbolLabel.h"
#include "SystemStyle.h"
#include "Updater.h"
#include "WindowRegistry.h"

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

template <typename T, typename Owner> T *withText(const Owner *owner, const QString &wanted)
{
    const QList<T *> candidates = owner->template findChildren<T *>();
    for (T *candidate : candidates) {
        if (candidate->text() == wanted)
            return candidate;
    }
    return nullptr;
}

void declareWindows(WindowRegistry &windows)
{
    for (const QString &id : {u"about"_s, u"whats-new"_s, u"settings"_s})
        windows.declare(id, id, [] { return new QLabel; });
}

} // namespace

class TestDashboardView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valueColor_data()
    {
        QTest::addColumn<double>("mgPerDl");
        QTest::addColumn<bool>("isLow");
        QTest::addColumn<bool>("isHigh");
        QTest::addColumn<std::optional<TrendArrow>>("trend");
        QTest::addColumn<QString>("tint");

        const std::optional<TrendArrow> none;
        QTest::newRow("65") << 65.0 << false << false << none << u"red"_s;
        QTest::newRow("70") << 70.0 << false << false << none << u"primary"_s;
        QTest::newRow("180") << 180.0 << false << false << std::optional(TrendArrow::steady) << u"primary"_s;
        QTest::newRow("181") << 181.0 << false << false << none << u"orange"_s;
        QTest::newRow("100 flagged low")
            << 100.0 << true << false << std::optional(TrendArrow::risingQuickly) << u"red"_s;
        QTest::newRow("150 flagged high") << 150.0 << false << true << none << u"orange"_s;
    }

    void valueColor()
    {
        QFETCH(double, mgPerDl);
        QFETCH(bool, isLow);
        QFETCH(bool, isHigh);
        QFETCH(std::optional<TrendArrow>, trend);
        QFETCH(QString, tint);

        const auto store = fixedStore(GlucoseReading{taken, mgPerDl, trend, isHigh, isLow});
        DashboardView dashboard(store.get(), nullptr, false, nullptr);
        dashboard.show();
        const auto *value = dashboard.findChild<QLabel *>(u"value"_s);
        QVERIFY(value && value->isVisible());
        // Both schemes, so that a palette change recolours what is already there.
        for (const QPalette &palette : {style::lightPalette(), style::darkPalette()}) {
            dashboard.setPalette(palette);
            const QColor expected = tint == u"red"_s      ? style::red(palette)
                                    : tint == u"orange"_s ? style::orange(palette)
                                                          : style::primaryText(palette);
            QCOMPARE(value->palette().color(QPalette::WindowText), expected);
            QCOMPARE(dashboard.findChild<QLabel *>(u"age"_s)->palette().color(QPalette::WindowText),
                     style::secondaryText(palette));
        }
        // No trend, no arrow.
        const auto *arrow = dashboard.findChild<QLabel *>(u"trend"_s);
        QCOMPARE(arrow->isVisible(), trend.has_value());
        if (trend)
            QCOMPARE(arrow->accessibleName(), spokenName(*trend));
    }

    void staleByWallClock_data()
    {
        QTest::addColumn<bool>("hasReading");
        QTest::addColumn<qint64>("ageMs");
        QTest::addColumn<bool>("stale");

        QTest::newRow("fresh") << true << 60'000LL << false;
        QTest::newRow("exactly 900 s") << true << 900'000LL << false;
        QTest::newRow("900 s and 1 ms") << true << 900'001LL << true;
        QTest::newRow("no reading") << false << 3'600'000LL << false;
    }

    void staleByWallClock()
    {
        QFETCH(bool, hasReading);
        QFETCH(qint64, ageMs);
        QFETCH(bool, stale);

        const auto store = fixedStore(hasReading ? std::optional(GlucoseReading{taken, 120, {}, false, false})
                                                 : std::nullopt);
        QDateTime wall = taken;
        DashboardView dashboard(store.get(), nullptr, false, nullptr);
        dashboard.setWallClock([&wall] { return wall; });
        // Judged again when the dashboard appears.
        wall = taken.addMSecs(ageMs);
        dashboard.show();
        QCOMPARE(shows(&dashboard, u"stale"_s), stale);
    }

    void ageTicksOnlyWhileShown()
    {
        const auto store = fixedStore(GlucoseReading{taken, 120, {}, false, false});
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

    void waitingWhileConnecting()
    {
        LiveStore live;
        live.service.addFault({u"login"_s, Fault::Kind::delay, 0, 0, {}, {}, 300ms, 1, {}});
        QCoro::Task<void> signIn = live.store->signIn(live.account().email, live.account().password);
        DashboardView dashboard(live.store.get(), nullptr, false, nullptr);
        dashboard.show();
        const auto *chart = dashboard.findChild<GlucoseChartView *>();
        QVERIFY(chart && chart->isVisible());
        QCOMPARE(text(&dashboard, u"waiting"_s), u"Waiting for data…"_s);
        QVERIFY(shows(&dashboard, u"waiting"_s) && shows(&dashboard, u"spinner"_s));
        QVERIFY(!shows(&dashboard, u"value"_s) && !shows(&dashboard, u"failure"_s));
        const QStringList statistics{text(&dashboard, u"average"_s), text(&dashboard, u"inRange"_s),
                                     text(&dashboard, u"readingCount"_s)};
        QCOMPARE(statistics, (QStringList{u"–"_s, u"–"_s, u"0"_s}));

        // The same widgets take the data when it arrives.
        QTRY_COMPARE(live.store->status().kind, Kind::active);
        QVERIFY(!shows(&dashboard, u"waiting"_s));
        QCOMPARE(text(&dashboard, u"value"_s), format(GlucoseUnit::mgPerDl, live.store->latest()->mgPerDl));
        QCOMPARE(text(&dashboard, u"readingCount"_s), QString::number(live.store->history().size()));
        QCOMPARE(dashboard.findChild<GlucoseChartView *>(), chart);
    }

    void failureKeepsTheOlderReading()
    {
        LiveStore live;
        QCoro::Task<void> signIn = live.store->signIn(live.account().email, live.account().password);
        QTRY_COMPARE(live.store->status().kind, Kind::active);
        const GlucoseReading latest = *live.store->latest();
        QDateTime wall = latest.date.addSecs(60);
        DashboardView dashboard(live.store.get(), nullptr, false, nullptr);
        dashboard.setWallClock([&wall] { return wall; });
        dashboard.show();
        QVERIFY(!shows(&dashboard, u"stale"_s));

        live.service.addFault({u"graph"_s, Fault::Kind::httpStatus, 500, 0, {}, {}, 0ms, -1, {}});
        // Nothing re-reads the clock until the store changes.
        wall = latest.date.addSecs(901);
        auto *refresh = dashboard.findChild<QToolButton *>(u"refresh"_s);
        QTest::mouseClick(refresh, Qt::LeftButton);
        QVERIFY(refresh->isEnabled());
        QTRY_COMPARE(live.store->status().kind, Kind::failed);

        const auto *failure = dashboard.findChild<SymbolLabel *>(u"failure"_s);
        QVERIFY(failure->isVisible());
        QCOMPARE(failure->text(), live.store->status().message);
        QCOMPARE(failure->color(), style::orange(dashboard.palette()));
        QCOMPARE(text(&dashboard, u"value"_s), format(GlucoseUnit::mgPerDl, latest.mgPerDl));
        QCOMPARE(text(&dashboard, u"readingCount"_s), QString::number(live.store->history().size()));
        QVERIFY(shows(&dashboard, u"stale"_s));
    }

    void unitPicker()
    {
        const auto store = fixedStore(GlucoseReading{taken, 100, {}, false, false});
        DashboardView dashboard(store.get(), nullptr, false, nullptr);
        DashboardView picture(store.get(), nullptr, true, nullptr);
        dashboard.show();
        QToolButton *mg = withText<QToolButton>(&dashboard, u"mg/dL"_s);
        QToolButton *mmol = withText<QToolButton>(&dashboard, u"mmol/L"_s);
        QVERIFY(mg && mmol && mg->isChecked());
        QVERIFY(!withText<QToolButton>(&picture, u"mg/dL"_s));

        QTest::mouseClick(mmol, Qt::LeftButton);
        QCOMPARE(store->unit(), GlucoseUnit::mmolPerL);
        QCOMPARE(text(&dashboard, u"value"_s) + text(&dashboard, u"unit"_s), u"5.5mmol/L"_s);
        QCOMPARE(text(&dashboard, u"average"_s), u"5.5"_s);
        QCOMPARE(picture.findChild<StaticUnitPicker *>()->unit(), GlucoseUnit::mmolPerL);

        // The store moving on its own moves the selection.
        store->setUnit(GlucoseUnit::mgPerDl);
        QVERIFY(mg->isChecked() && !mmol->isChecked());
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
        if (declared)
            declareWindows(windows);
        DashboardView dashboard(store.get(), hasUpdater ? &updater : nullptr, false, &windows);
        const std::unique_ptr<QMenu> menu(dashboard.buildGearMenu());

        QStringList items;
        QList<bool> enabled;
        const QList<QAction *> actions = menu->actions();
        for (const QAction *action : actions) {
            items.append(action->text() + u'|' + action->shortcut().toString(QKeySequence::PortableText));
            enabled.append(action->isEnabled());
        }
        QCOMPARE(items, (QStringList{u"About Glinta|"_s, u"Check for Updates…|"_s, u"What's New…|"_s, u"|"_s,
                                     u"Settings…|Ctrl+,"_s, u"|"_s, u"Quit Glinta|Ctrl+Q"_s}));
        QVERIFY(actions[3]->isSeparator() && actions[5]->isSeparator());
        QCOMPARE(enabled,
                 (QList<bool>{declared, hasUpdater && canCheck, declared, true, declared, true, true}));
    }

    void updateCheckIsAskedWhenTheMenuIsBuilt()
    {
        const auto store = fixedStore(std::nullopt);
        FakeUpdater updater;
        updater.canCheck = false;
        DashboardView dashboard(store.get(), &updater, false, nullptr);
        const std::unique_ptr<QMenu> during(dashboard.buildGearMenu());
        updater.canCheck = true;
        QVERIFY(!withText<QAction>(during.get(), u"Check for Updates…"_s)->isEnabled());

        const std::unique_ptr<QMenu> after(dashboard.buildGearMenu());
        withText<QAction>(after.get(), u"Check for Updates…"_s)->trigger();
        QCOMPARE(updater.checks, 1);
    }

    void menuItemsAct_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QKeyCombination>("key"); // Key_unknown: chosen with the mouse
        QTest::addColumn<QString>("window");      // empty: quits

        const QKeyCombination mouse(Qt::Key_unknown);
        QTest::newRow("About") << u"About Glinta"_s << mouse << u"about"_s;
        QTest::newRow("What's New") << u"What's New…"_s << mouse << u"whats-new"_s;
        QTest::newRow("Quit") << u"Quit Glinta"_s << mouse << QString();
        QTest::newRow("Ctrl+, in the open menu") << QString() << (Qt::CTRL | Qt::Key_Comma) << u"settings"_s;
        QTest::newRow("Ctrl+Q in the open menu") << QString() << (Qt::CTRL | Qt::Key_Q) << QString();
    }

    void menuItemsAct()
    {
        QFETCH(QString, title);
        QFETCH(QKeyCombination, key);
        QFETCH(QString, window);

        const auto store = fixedStore(std::nullopt);
        WindowRegistry windows;
        declareWindows(windows);
        DashboardView dashboard(store.get(), nullptr, false, &windows);
        QSignalSpy quit(&dashboard, &DashboardView::quitRequested);
        const std::unique_ptr<QMenu> menu(dashboard.buildGearMenu());
        if (key.key() == Qt::Key_unknown) {
            withText<QAction>(menu.get(), title)->trigger();
        } else {
            menu->popup(QPoint(20, 20));
            QVERIFY(QTest::qWaitForWindowExposed(menu.get()));
            QTest::keyClick(menu->windowHandle(), key.key(), key.keyboardModifiers());
        }
        QCOMPARE(quit.size(), window.isEmpty() ? 1 : 0);
        if (!window.isEmpty())
            QVERIFY(windows.window(window));
    }

    void panelFollowsSignIn()
    {
        LiveStore live;
        GlucosePanelView panel(live.store.get(), live.preferences.get(), nullptr, false, nullptr);
        QSignalSpy quit(&panel, &GlucosePanelView::quitRequested);
        QCOMPARE(panel.width(), 340);
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

    void panelShowsThePromptWhenThePasswordIsMissing()
    {
        // An e-mail is saved but the keyring has no password for it: the store ends up logged out.
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
