// The tray icon, the panel it opens (dashboard, or prompt while signed out) and the windows it opens.
#include "LiveStore.h"
#include "LogCapture.h"
#include "TestSupport.h"
#include "ViewLookup.h"
#include "domain/MenuBarTitle.h"
#include "menubar/DashboardView.h"
#include "menubar/GlucosePanelView.h"
#include "menubar/LoginView.h"
#include "menubar/ReleaseNotes.h"
#include "menubar/SettingsView.h"
#include "menubar/SignInPromptView.h"
#include "menubar/TrayIconEngine.h"
#include "menubar/TrayIconPainter.h"
#include "menubar/WhatsNewView.h"
#include "menubar/WindowRegistry.h"
#include "persistence/LoginItem.h"
#include "snapshot/GlucoseSnapshot.h"
#include "uikit/SymbolLabel.h"
#include "update/Updater.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalSpy>
#include <QTimeZone>
#include <QToolButton>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;
using glinta::sim::Fault;
using Kind = GlucoseStore::Status::Kind;

namespace {

const QDateTime taken(QDate(2024, 1, 15), QTime(10, 0), QTimeZone::utc());

struct FakeUpdater : Updater
{
    bool canCheck = true;
    int checks = 0;
    bool canCheckForUpdates() const override { return canCheck; }
    void checkForUpdates() override { ++checks; }
};

std::unique_ptr<GlucoseStore> fixedStore(std::optional<GlucoseReading> latest)
{
    GlucoseSnapshot snapshot;
    snapshot.latest = latest;
    snapshot.history = latest ? QList{*latest} : QList<GlucoseReading>();
    return GlucoseStore::fromSnapshot(snapshot);
}

// The check box takes clicks on its indicator and label, not on the blank rest of its row.
void clickToggle(QCheckBox *toggle)
{
    QTest::mouseClick(toggle, Qt::LeftButton, {}, QPoint(toggle->height() / 2, toggle->height() / 2));
}

MenuBarTitle trayTitle(bool stale, bool update)
{
    MenuBarTitle title;
    title.showsSymbol = false;
    title.value = u"124"_s;
    title.trend = TrendArrow::rising;
    title.isStale = stale;
    title.updateWaiting = update;
    return title;
}

// The strongest alpha, and whether any pixel is close to `colour`, inside `region` (in pixels).
struct RegionLook
{
    int maxAlpha = 0;
    bool has = false;
};

RegionLook look(const QImage &image, const QRect &region, const QColor &colour)
{
    RegionLook result;
    for (int y = region.top(); y <= region.bottom(); ++y) {
        for (int x = region.left(); x <= region.right(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            result.maxAlpha = std::max(result.maxAlpha, pixel.alpha());
            if (pixel.alpha() > 200 && std::abs(pixel.red() - colour.red()) < 40 &&
                std::abs(pixel.green() - colour.green()) < 40 && std::abs(pixel.blue() - colour.blue()) < 40)
                result.has = true;
        }
    }
    return result;
}

} // namespace

class TestPanel : public QObject
{
    Q_OBJECT

    QTemporaryDir dir;
    std::unique_ptr<LoginItem> loginItem;
    std::unique_ptr<LiveStore> live;
    std::unique_ptr<WindowRegistry> windows;
    QPointer<QWidget> window;
    QLineEdit *email = nullptr;
    QLineEdit *password = nullptr;
    QPushButton *signIn = nullptr;

    bool open(const QString &id)
    {
        window = windows->open(id);
        return window && QTest::qWaitForWindowExposed(window);
    }

    bool openLogin(const QString &typedEmail = {}, const QString &typedPassword = {})
    {
        if (!open(u"login"_s))
            return false;
        email = named<QLineEdit>(window, u"Email"_s);
        password = named<QLineEdit>(window, u"Password"_s);
        signIn = named<QPushButton>(window, u"Sign In"_s);
        if (!email || !password || !signIn)
            return false;
        QTest::keyClicks(email, typedEmail);
        QTest::keyClicks(password, typedPassword);
        return true;
    }

private Q_SLOTS:
    void init()
    {
        loginItem = std::make_unique<LoginItem>(dir.filePath(u"autostart"_s), u"/usr/bin/glinta"_s);
        live = std::make_unique<LiveStore>();
        windows = std::make_unique<WindowRegistry>();
        windows->declare(u"login"_s, u"Sign In to Glinta"_s,
                         [this] { return new LoginView(live->store.get(), windows.get()); });
        windows->declare(u"settings"_s, u"Glinta Settings"_s, [this] {
            return new SettingsView(live->store.get(), live->preferences.get(), loginItem.get(),
                                    windows.get());
        });
    }

    void cleanup()
    {
        windows.reset();
        live.reset();
        loginItem->unregisterItem();
    }

    // The value's colour, its age and the stale mark, judged by the wall clock again on showing.
    void valueAndStaleness_data()
    {
        columns<GlucoseReading, qint64, QString, bool, QString>("latest", "ageMs", "colour", "stale", "age");
        const auto at = [](double mgPerDl, std::optional<TrendArrow> trend = {}, bool high = false,
                           bool low = false) {
            return GlucoseReading{taken, mgPerDl, trend, high, low};
        };
        QTest::newRow("65") << at(65) << 252'000LL << u"red"_s << false << u"4 min, 12 sec ago"_s;
        QTest::newRow("70, exactly 900 s") << at(70) << 900'000LL << u"primary"_s << false << u"15 min ago"_s;
        QTest::newRow("180 steady, 900 s and 1 ms")
            << at(180, TrendArrow::steady) << 900'001LL << u"primary"_s << true << u"15 min ago"_s;
        QTest::newRow("181") << at(181) << 0LL << u"orange"_s << false << u"0 sec ago"_s;
        QTest::newRow("100 flagged low")
            << at(100, TrendArrow::risingQuickly, false, true) << 0LL << u"red"_s << false << u"0 sec ago"_s;
        QTest::newRow("150 flagged high")
            << at(150, {}, true) << 0LL << u"orange"_s << false << u"0 sec ago"_s;
    }

    void valueAndStaleness()
    {
        const auto [latest, ageMs, colour] =
            fetch<GlucoseReading, qint64, QString>("latest", "ageMs", "colour");
        const auto store = fixedStore(latest);
        QDateTime wall = taken;
        DashboardView dashboard(store.get(), nullptr, false, nullptr);
        dashboard.setWallClock([&wall] { return wall; });
        wall = taken.addMSecs(ageMs);
        dashboard.show();
        QTEST(shows(&dashboard, u"stale"_s), "stale");
        QTEST(text(&dashboard, u"age"_s), "age");
        // Set after the value is there, so that a scheme change recolours it.
        dashboard.setPalette(style::darkPalette());
        QCOMPARE(ink(&dashboard, u"value"_s), tint(style::darkPalette(), colour));
        const auto *arrow = dashboard.findChild<QLabel *>(u"trend"_s);
        QCOMPARE(arrow->isVisible(), latest.trend.has_value());
        QCOMPARE(arrow->accessibleName(), latest.trend ? spokenName(*latest.trend) : QString());
    }

    // Waiting while connecting, then the data in the same widgets, then a failure that keeps it.
    void followsTheStore()
    {
        live->service.addFault({u"login"_s, Fault::Kind::delay, 0, 0, {}, {}, 300ms, 1, {}});
        QCoro::Task<void> signIn = live->store->signIn(live->account().email, live->account().password);
        DashboardView dashboard(live->store.get(), nullptr, false, nullptr);
        QDateTime wall = live->clock.now();
        dashboard.setWallClock([&wall] { return wall; });
        dashboard.show();
        QCOMPARE(text(&dashboard, u"waiting"_s), u"Waiting for data…"_s);
        QVERIFY(shows(&dashboard, u"spinner"_s) && !shows(&dashboard, u"value"_s) &&
                !shows(&dashboard, u"failure"_s));

        QTRY_COMPARE(live->store->status().kind, Kind::active);
        const QString value = format(GlucoseUnit::mgPerDl, live->store->latest()->mgPerDl);
        QVERIFY(!shows(&dashboard, u"waiting"_s) && !shows(&dashboard, u"stale"_s));
        QCOMPARE(text(&dashboard, u"value"_s), value);

        live->service.addFault({u"graph"_s, Fault::Kind::httpStatus, 500, 0, {}, {}, 0ms, -1, {}});
        wall = live->store->latest()->date.addSecs(901); // nothing re-reads the clock until the store changes
        QTest::mouseClick(dashboard.findChild<QToolButton *>(u"refresh"_s), Qt::LeftButton);
        QTRY_COMPARE(live->store->status().kind, Kind::failed);
        const auto *failure = dashboard.findChild<SymbolLabel *>(u"failure"_s);
        QVERIFY(failure->isVisible() && shows(&dashboard, u"stale"_s) &&
                !shows(&dashboard, u"signInAgain"_s));
        QCOMPARE(failure->text(), live->store->status().message);
        QCOMPARE(text(&dashboard, u"value"_s), value);
    }

    // The user's range colours the value and counts "In range"; the alert line follows the store's, Snooze
    // asks for the one shown, and the unit picker converts every figure.
    void rangeAlertAndUnit()
    {
        const auto store = fixedStore(GlucoseReading{taken, 75, TrendArrow::falling, false, false});
        DashboardView dashboard(store.get(), nullptr, false, nullptr);
        QSignalSpy snoozes(&dashboard, &DashboardView::snoozeRequested);
        dashboard.show();
        QVERIFY(!shows(&dashboard, u"alert"_s));
        QCOMPARE(ink(&dashboard, u"value"_s), style::primaryText(dashboard.palette()));
        store->setTargetRange({80, 250});
        QCOMPARE(ink(&dashboard, u"value"_s), style::red(dashboard.palette()));
        QCOMPARE(text(&dashboard, u"inRange"_s), u"0%"_s);

        store->setActiveAlert(AlertKind::low);
        QCOMPARE(dashboard.findChild<SymbolLabel *>(u"alert"_s)->text(), u"Low: 75 ↘"_s);
        dashboard.findChild<QToolButton *>(u"snooze"_s)->menu()->actions().at(1)->trigger();
        QCOMPARE(snoozes.size(), 1);
        QCOMPARE(snoozes[0][0].value<AlertKind>(), AlertKind::low);
        QCOMPARE(snoozes[0][1].value<std::chrono::minutes>(), std::chrono::minutes(120));
        store->setActiveAlert(std::nullopt);
        QVERIFY(!shows(&dashboard, u"alert"_s));

        const QList<QAbstractButton *> segments = dashboard.findChild<QButtonGroup *>()->buttons();
        QVERIFY(segments[0]->isChecked() && segments[1]->text() == u"mmol/L"_s);
        QTest::mouseClick(segments[1], Qt::LeftButton);
        QCOMPARE(store->unit(), GlucoseUnit::mmolPerL);
        QCOMPARE(text(&dashboard, u"value"_s) + text(&dashboard, u"unit"_s) + text(&dashboard, u"average"_s),
                 u"4.2mmol/L4.2"_s);
    }

    void gearMenu_data()
    {
        columns<bool, bool, bool>("hasUpdater", "canCheck", "declared");
        QTest::newRow("everything available") << true << true << true;
        QTest::newRow("a check is running") << true << false << true;
        QTest::newRow("no updater, no windows yet") << false << true << false;
    }

    void gearMenu()
    {
        const auto [hasUpdater, canCheck, declared] =
            fetch<bool, bool, bool>("hasUpdater", "canCheck", "declared");
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

        // Each item does what it says; the windows open through the registry.
        QStringList items;
        QList<bool> enabled;
        for (QAction *action : menu->actions()) {
            items.append(action->text() + u'|' + action->shortcut().toString(QKeySequence::PortableText));
            enabled.append(action->isEnabled());
            action->trigger();
        }
        QCOMPARE(items, (QStringList{u"About Glinta|"_s, u"Check for Updates…|"_s, u"What's New…|"_s, u"|"_s,
                                     u"Settings…|Ctrl+,"_s, u"|"_s, u"Quit Glinta|Ctrl+Q"_s}));
        QCOMPARE(enabled,
                 (QList<bool>{declared, hasUpdater && canCheck, declared, true, declared, true, true}));
        QStringList order;
        for (const QList<QVariant> &call : std::as_const(opened))
            order.append(call.at(0).toString());
        QCOMPARE(order, declared ? ids : QStringList());
        QCOMPARE(updater.checks, hasUpdater && canCheck ? 1 : 0);
        QCOMPARE(quit.size(), 1);
    }

    // The prompt's Sign In… goes through the registry (one sign-in window only). Connecting without a saved
    // e-mail is still nobody signed in; a failure keeps the dashboard. Either view's Quit is the panel's.
    void panelFollowsSignIn()
    {
        GlucosePanelView panel(live->store.get(), live->preferences.get(), nullptr, false, windows.get());
        QSignalSpy quit(&panel, &GlucosePanelView::quitRequested);
        const QPointer<SignInPromptView> prompt = qobject_cast<SignInPromptView *>(panel.content());
        QVERIFY(prompt);
        QTest::mouseClick(named<QPushButton>(prompt, u"Sign In\u2026"_s), Qt::LeftButton);
        QVERIFY(windows->window(u"login"_s));
        live->service.addFault({u"login"_s, Fault::Kind::delay, 0, 0, {}, {}, 100ms, 1, {}});
        QCoro::Task<void> signIn = live->store->signIn(live->account().email, live->account().password);
        QCOMPARE(live->store->status().kind, Kind::connecting);
        QCOMPARE(panel.content(), prompt.data());
        QTest::mouseClick(named<QPushButton>(prompt, u"Quit"_s), Qt::LeftButton);

        QTRY_VERIFY(!prompt);
        const QPointer<DashboardView> dashboard = qobject_cast<DashboardView *>(panel.content());
        QVERIFY(dashboard);
        Q_EMIT dashboard->quitRequested();
        QCOMPARE(quit.size(), 2);
        live->service.addFault({u"graph"_s, Fault::Kind::httpStatus, 500, 0, {}, {}, 0ms, -1, {}});
        QCoro::Task<void> failing = live->store->refresh();
        QTRY_COMPARE(live->store->status().kind, Kind::failed);
        QCOMPARE(panel.content(), dashboard.data());

        live->store->signOut();
        QVERIFY(qobject_cast<SignInPromptView *>(panel.content()));
        QTRY_VERIFY(!dashboard);
    }

    // Polling stops on a rejected password (dashboard) or one missing from the keyring (prompt); signing in
    // again asks only for the password, and ends the failure.
    void signInAgainAfterACredentialFailure_data()
    {
        columns<std::optional<QString>, QString>("keyringHolds", "button");
        QTest::newRow("password rejected") << std::optional(u"wrong"_s) << u"Sign In Again\u2026"_s;
        QTest::newRow("password missing") << std::optional<QString>() << u"Sign In\u2026"_s;
    }

    void signInAgainAfterACredentialFailure()
    {
        const auto [keyringHolds, button] = fetch<std::optional<QString>, QString>("keyringHolds", "button");
        live->preferences->setLibreLinkUpEmail(live->account().email);
        if (keyringHolds)
            QCoro::waitFor(live->keychain.savePassword(*keyringHolds, live->account().email));
        live->restart();
        GlucosePanelView panel(live->store.get(), live->preferences.get(), nullptr, false, windows.get());
        QTRY_VERIFY(live->store->credentialFailure());
        panel.show();
        QPushButton *again = named<QPushButton>(panel.content(), button);
        QVERIFY(again && again->isVisible());
        QTest::mouseClick(again, Qt::LeftButton);
        QVERIFY(windows->window(u"login"_s) && openLogin());
        QCOMPARE(email->text() + u'|' + password->text(), live->account().email + u'|');
        QCOMPARE(window->focusWidget(), password);
        QTest::keyClicks(password, live->account().password);
        QTest::mouseClick(signIn, Qt::LeftButton);
        QTRY_VERIFY(!window && !live->store->credentialFailure());
        QVERIFY(qobject_cast<DashboardView *>(panel.content()) && !shows(&panel, u"signInAgain"_s));
    }

    // The button follows the texts, blanks included; Return does not submit. A wrong password keeps window,
    // texts and message; the next try hides it, needs one click, closes the window; a new one starts empty.
    void signingIn()
    {
        QVERIFY(openLogin(u" "_s));
        QVERIFY(!signIn->isEnabled());
        QTest::keyClicks(password, u" "_s);
        QVERIFY(signIn->isEnabled());
        QTest::keyClick(email, Qt::Key_Return);
        QTest::keyClick(password, Qt::Key_Return);
        QCOMPARE(live->store->status().kind, Kind::loggedOut);
        QTest::keyClick(email, Qt::Key_Backspace);
        QVERIFY(!signIn->isEnabled());
        QTest::keyClicks(email, live->account().email);
        QTest::keyClicks(password, u"wrong"_s);
        QTest::mouseClick(signIn, Qt::LeftButton);
        // The view's own task ends after the status changes.
        QTRY_VERIFY(signIn->isEnabled());
        const auto *message = named<QLabel>(window, u"LibreLinkUp rejected the email or password."_s);
        QVERIFY(window && message && message->isVisible() && signIn->text() == u"Sign In"_s);
        QCOMPARE(email->text() + u'|' + password->text(), live->account().email + u"| wrong"_s);

        live->service.addFault({u"login"_s, Fault::Kind::delay, 0, 0, {}, {}, 300ms, 1, {}});
        password->clear();
        QTest::keyClicks(password, live->account().password);
        QTest::mouseClick(signIn, Qt::LeftButton);
        QCOMPARE(live->store->status().kind, Kind::connecting);
        QVERIFY(!message->isVisible() && !signIn->isEnabled());
        QTRY_VERIFY(!window);
        QCOMPARE(live->store->savedEmail(), std::optional(live->account().email));
        QVERIFY(openLogin() && email->text().isEmpty() && password->text().isEmpty());
    }

    // The sign-in goes on without the view, and a window opened meanwhile is left alone.
    void closedWhileSigningIn()
    {
        live->service.addFault({u"login"_s, Fault::Kind::delay, 0, 0, {}, {}, 200ms, 1, {}});
        QVERIFY(openLogin(live->account().email, live->account().password));
        QTest::mouseClick(signIn, Qt::LeftButton);
        windows->dismiss(u"login"_s);
        QTRY_VERIFY(!window);
        QVERIFY(openLogin());
        QTRY_COMPARE(live->store->savedEmail(), std::optional(live->account().email));
        QVERIFY(!QTest::qWaitFor([this] { return !window; }, 50));
    }

    // The switch follows the login item, also changed behind the window's back (the desktop's own startup
    // settings) when shown again; a change the item refuses springs back and says why.
    void launchAtLogin_data()
    {
        columns<QString, QString>("autostart", "log");
        QTest::newRow("follows") << u"autostart"_s << QString();
        QTest::newRow("refused") << u"file/autostart"_s
                                 << u"critical: Launch at Login change failed: Not a directory"_s;
    }

    void launchAtLogin()
    {
        const auto [autostart, log] = fetch<QString, QString>("autostart", "log");
        QVERIFY(QFile(dir.filePath(u"file"_s)).open(QIODevice::WriteOnly)); // a file where a folder must go
        loginItem = std::make_unique<LoginItem>(dir.filePath(autostart), u"/usr/bin/glinta"_s);
        const LogCapture capture;
        QVERIFY(open(u"settings"_s));
        QCheckBox *launch = named<QCheckBox>(window, u"Launch Glinta at login"_s);
        QVERIFY(launch && !launch->isChecked());
        clickToggle(launch);
        QCOMPARE(launch->isChecked(), log.isEmpty());
        if (log.isEmpty()) {
            QCOMPARE(loginItem->status(), LoginItem::Status::enabled);
            clickToggle(launch);
            QVERIFY(!launch->isChecked() && !QFile::exists(loginItem->filePath()));
            window->hide();
            loginItem->registerItem();
            window->show();
            QVERIFY(launch->isChecked());
        }
        QCOMPARE(capture.lines(u"SettingsView"_s).join(u'\n'), log);
    }

    // The account follows the store; signing out asks first, and only its own button signs out.
    void accountAndSignOut_data()
    {
        columns<QString, bool>("answer", "signsOut");
        QTest::newRow("Sign Out") << u"Sign Out"_s << true;
        QTest::newRow("Cancel") << u"Cancel"_s << false;
    }

    void accountAndSignOut()
    {
        const auto [answer, signsOut] = fetch<QString, bool>("answer", "signsOut");
        QVERIFY(open(u"settings"_s));
        QLabel *account = named<QLabel>(window, u"Not signed in"_s);
        QPushButton *signOut = named<QPushButton>(window, u"Sign Out\u2026"_s);
        QVERIFY(account && signOut && !signOut->isVisible());
        QCoro::waitFor(live->store->signIn(live->account().email, live->account().password)); // never throws
        QCOMPARE(account->text(), live->account().email);
        QVERIFY(signOut->isVisible());

        // Shown without an event loop of its own, or the click would not return.
        QTest::mouseClick(signOut, Qt::LeftButton);
        const QPointer<QMessageBox> alert = window->findChild<SettingsView *>()->signOutAlert();
        QVERIFY(alert && QTest::qWaitForWindowExposed(alert));
        QCOMPARE(alert->defaultButton()->text(), u"Sign Out"_s);

        QTest::mouseClick(named<QPushButton>(alert, answer), Qt::LeftButton);
        QTRY_VERIFY(!alert);
        QCOMPARE(live->store->savedEmail().has_value(), !signsOut);
        // Signing out closes the window; keeping the account leaves it open.
        QCOMPARE(QTest::qWaitFor([this] { return !window; }, signsOut ? 5000 : 50), signsOut);
    }

    // The people the account follows, the followed one marked; a click follows another, and a choice no
    // longer listed says so.
    void choosingThePerson()
    {
        live->preferences->setFollowedPatientId(u"p-gone"_s);
        QCoro::waitFor(live->store->signIn(live->account().email, live->account().password)); // never throws
        QTRY_VERIFY(live->store->followedPatientId().has_value());
        QVERIFY(open(u"settings"_s));
        QRadioButton *ann = named<QRadioButton>(window, u"Ann Lee"_s);
        QRadioButton *max = named<QRadioButton>(window, u"Max Lee"_s);
        QLabel *missing = window->findChild<QLabel *>(u"choiceMissing"_s);
        QVERIFY(ann && max && missing);
        QVERIFY(ann->isChecked() && !max->isChecked() && missing->isVisible());

        QTest::mouseClick(max, Qt::LeftButton, {}, QPoint(6, max->height() / 2)); // on its circle
        QCOMPARE(live->store->connectionName(), u"Max Lee"_s);
        QVERIFY(max->isChecked() && !ann->isChecked() && !missing->isVisible());
    }

    // A figure is read in the shown unit and saved in whole mg/dL; a refused one says why under its field,
    // keeps its text and saves nothing. The store's next range replaces either.
    void targetRangeEntry_data()
    {
        // outcome: the stored range (80-250 before), then each red line
        columns<GlucoseUnit, QString, QString, QString>("unit", "low", "high", "outcome");
        const auto [mg, mmol] = allGlucoseUnits;
        const QString lowMg = u"80-250|Between 54 and 120 mg/dL|"_s;
        QTest::newRow("120") << mg << u"120"_s << u"180"_s << u"120-180||"_s;
        QTest::newRow("121") << mg << u"121"_s << u"180"_s << lowMg;
        QTest::newRow("abc") << mg << u"abc"_s << u"180"_s << lowMg;
        QTest::newRow("300") << mg << u" 70"_s << u"300"_s << u"70-300||"_s;
        QTest::newRow("53 and 301") << mg << u"53"_s << u"301"_s
                                    << u"80-250|Between 54 and 120 mg/dL|Between 120 and 300 mg/dL"_s;
        QTest::newRow("9 apart") << mg << u"111"_s << u"120"_s
                                 << u"80-250|At least 10 mg/dL below the high|"_s;
        QTest::newRow("10 apart") << mg << u"110"_s << u"120"_s << u"110-120||"_s;
        QTest::newRow("3.9 is 70") << mmol << u"3.9"_s << u"11.1"_s << u"70-200||"_s;
        QTest::newRow("5,5") << mmol << u"5,5"_s << u"10.0"_s << u"99-180||"_s;
        QTest::newRow("3.0") << mmol << u"3.0"_s << u"10.0"_s << u"54-180||"_s;
        QTest::newRow("6.6") << mmol << u"6.6"_s << u"10.0"_s << u"119-180||"_s;
        QTest::newRow("6.7") << mmol << u"6.7"_s << u"10.0"_s << u"80-250|Between 3.0 and 6.6 mmol/L|"_s;
        QTest::newRow("16.7") << mmol << u"3.9"_s << u"16.7"_s << u"80-250||Between 6.7 and 16.6 mmol/L"_s;
        QTest::newRow("0.1 apart") << mmol << u"6.6"_s << u"6.7"_s
                                   << u"80-250|At least 0.6 mmol/L below the high|"_s;
        QTest::newRow("4.4 as shown stays 80, typed is 79") << mmol << u"4.4"_s << u"13.9"_s << u"80-250||"_s;
    }

    void targetRangeEntry()
    {
        const auto [unit, low, high] = fetch<GlucoseUnit, QString, QString>("unit", "low", "high");
        live->store->setUnit(unit);
        live->store->setTargetRange({80, 250});
        QVERIFY(open(u"settings"_s));
        auto *lowField = window->findChild<QLineEdit *>(u"targetLow"_s);
        lowField->setText(low);
        window->findChild<QLineEdit *>(u"targetHigh"_s)->setText(high);
        QTest::keyClick(window->findChild<QLineEdit *>(u"targetHigh"_s), Qt::Key_Return);
        const TargetRange saved = live->store->targetRange();
        QString outcome = u"%1-%2"_s.arg(saved.lowMgPerDl).arg(saved.highMgPerDl);
        for (const QString &name : {u"targetLowProblem"_s, u"targetHighProblem"_s})
            outcome += u'|' + (shows(window, name) ? text(window, name) : QString());
        QTEST(outcome, "outcome");
        QCOMPARE(lowField->accessibleDescription(), text(window, u"targetLowProblem"_s));
        QCOMPARE(lowField->text(), (saved == TargetRange{80, 250} ? low : format(unit, saved.lowMgPerDl)));
        live->store->setTargetRange({90, 250});
        QCOMPARE(lowField->text() + text(window, u"targetLowProblem"_s), format(unit, 90));
    }

    // Each switch writes its preference and follows it; urgent low goes off only after "Turn Off".
    void alertSwitches_data()
    {
        columns<QString, bool>("answer", "urgentLowOn");
        QTest::newRow("Turn Off") << u"Turn Off"_s << false;
        QTest::newRow("Cancel") << u"Cancel"_s << true;
    }

    void alertSwitches()
    {
        const auto [answer, urgentLowOn] = fetch<QString, bool>("answer", "urgentLowOn");
        QVERIFY(open(u"settings"_s));
        live->store->setUnit(GlucoseUnit::mmolPerL);
        // Top to bottom, by keyboard too, in the unit just picked.
        QStringList order;
        QWidget *first = named<QCheckBox>(window, u"Launch Glinta at login"_s);
        for (QWidget *widget = first; (widget = widget->nextInFocusChain()) != first;) {
            if (widget->isVisible() && (widget->focusPolicy() & Qt::TabFocus))
                order.append(widget->property("text").toString());
        }
        QCOMPARE(order, (QStringList{u"3.9"_s, u"10.0"_s, u"Urgent low (below 3.0 mmol/L)"_s,
                                     u"Low (below the target range)"_s, u"High (above the target range)"_s,
                                     u"Falling fast (\u2193)"_s, u"Rising fast (\u2191)"_s,
                                     u"No new readings for 20 minutes"_s, u"Play a sound"_s}));
        clickToggle(window->findChild<QCheckBox *>(u"alert_risingFast"_s));
        live->preferences->setAlertSound(false);
        QVERIFY(live->preferences->alertSettings().isEnabled(AlertKind::risingFast) &&
                !window->findChild<QCheckBox *>(u"alertSound"_s)->isChecked());

        auto *urgent = window->findChild<QCheckBox *>(u"alert_urgentLow"_s);
        clickToggle(urgent);
        const QPointer<QMessageBox> alert = window->findChild<SettingsView *>()->urgentLowAlert();
        QVERIFY(alert && QTest::qWaitForWindowExposed(alert) && urgent->isChecked());
        QCOMPARE(
            alert->text() + u'|' + alert->informativeText(),
            u"Turn off urgent low alerts?|Glinta will no longer alert you when glucose falls below 3.0 mmol/L."_s);
        QCOMPARE(alert->defaultButton(), named<QPushButton>(alert, u"Cancel"_s));
        QTest::mouseClick(named<QPushButton>(alert, answer), Qt::LeftButton);
        QTRY_VERIFY(!alert);
        QCOMPARE(live->preferences->alertSettings().isEnabled(AlertKind::urgentLow), urgentLowOn);
        QCOMPARE(urgent->isChecked(), urgentLowOn);
    }

    // A screen reader hears each entry as one sentence per change, the badge included.
    void whatsNewMarksOnlyTheRunningVersion_data()
    {
        columns<std::optional<QString>, QStringList>("current", "marked");
        QTest::newRow("absent") << std::optional<QString>() << QStringList();
        QTest::newRow("1.3 is not 1.3.x") << std::optional(u"1.3"_s) << QStringList{u"1.3"_s};
        QTest::newRow("no padding of versions") << std::optional(u"1.3.0"_s) << QStringList();
    }

    void whatsNewMarksOnlyTheRunningVersion()
    {
        const auto [current, marked] = fetch<std::optional<QString>, QStringList>("current", "marked");
        const WhatsNewView view(current);
        const QList<QWidget *> entries = view.findChildren<QWidget *>(u"entry"_s);
        QCOMPARE(entries.size(), releaseNotes().size());
        QStringList badged;
        for (int i = 0; i < entries.size(); ++i) {
            if (const auto *badge = entries[i]->findChild<QLabel *>(u"installedBadge"_s))
                badged.append(badge->text() == u"Installed"_s ? releaseNotes().at(i).version : badge->text());
        }
        QCOMPARE(badged, marked);
        QCOMPARE(WhatsNewView(u"1.2"_s).entryAccessibilityLabels().at(7),
                 u"Version 1.2, July 2026, installed. Desktop widgets: current reading, chart, and 12-hour "
                 u"stats.. Sign-in moved to its own window so password AutoFill works."_s);
    }

    void title_data()
    {
        // mgPerDl: negative: no reading at all
        columns<double, std::optional<TrendArrow>, GlucoseUnit, qint64, std::optional<QString>, QString,
                QString>("mgPerDl", "trend", "unit", "ageMs", "waiting", "text", "spoken");

        const auto rising = std::optional(TrendArrow::rising);
        const std::optional<TrendArrow> none;
        const auto mg = GlucoseUnit::mgPerDl;
        const std::optional<QString> noUpdate;
        const auto update = std::optional(u"1.4"_s);

        QTest::newRow("no reading, update waiting")
            << -1.0 << rising << mg << 0LL << update << QString() << u"Glinta: no glucose data"_s;
        QTest::newRow("exactly 900 s") << 124.0 << rising << mg << 900000LL << noUpdate << u"124 \u2197"_s
                                       << u"Glucose 124 mg/dL, rising"_s;
        QTest::newRow("900 s and 1 ms")
            << 124.0 << rising << mg << 900001LL << noUpdate << u"124 \u2197 \u26A0\uFE0E"_s
            << u"Glucose 124 mg/dL, rising, data is stale"_s;
        QTest::newRow("stale, update waiting")
            << 124.0 << rising << mg << 901000LL << update << u"124 \u2197 \u26A0\uFE0E \u2022"_s
            << u"Glucose 124 mg/dL, rising, data is stale, update 1.4 available"_s;
        QTest::newRow("mmol/L") << 124.0 << rising << GlucoseUnit::mmolPerL << 0LL << noUpdate
                                << u"6.9 \u2197"_s << u"Glucose 6.9 mmol/L, rising"_s;
        QTest::newRow("no trend, empty waiting version")
            << 88.0 << none << mg << 0LL << std::optional(QString()) << u"88 \u2022"_s
            << u"Glucose 88 mg/dL, update  available"_s;
    }

    void title()
    {
        const auto [mgPerDl, trend, unit, ageMs, waiting] =
            fetch<double, std::optional<TrendArrow>, GlucoseUnit, qint64, std::optional<QString>>(
                "mgPerDl", "trend", "unit", "ageMs", "waiting");
        std::optional<GlucoseReading> latest;
        if (mgPerDl >= 0)
            latest = GlucoseReading{taken, mgPerDl, trend, false, false};
        const MenuBarTitle title = menuBarTitle(latest, unit, taken.addMSecs(ageMs), waiting);
        QCOMPARE(title.showsSymbol, !latest);
        QTEST(title.text, "text");
        QTEST(title.accessibilityLabel, "spoken");
    }

    // Stale: dimmed value, orange warning top right; update waiting: blue dot bottom left; value in the ink.
    void badges_data()
    {
        columns<bool, bool>("stale", "update");
        QTest::newRow("fresh") << false << false;
        QTest::newRow("stale") << true << false;
        QTest::newRow("update waiting") << false << true;
    }

    void badges()
    {
        const auto [stale, update] = fetch<bool, bool>("stale", "update");
        const int size = 22;
        const QImage image = paintTrayIcon(trayTitle(stale, update), size, 1, Qt::black);
        const int valueAlpha =
            look(image, QRect(size / 4, size * 2 / 5, size / 2, size / 5), Qt::black).maxAlpha;
        if (stale)
            QVERIFY2(valueAlpha < 160, qPrintable(QString::number(valueAlpha)));
        else
            QCOMPARE(valueAlpha, 255);
        QCOMPARE(look(image, QRect(size * 3 / 4, 0, size / 4, size / 4), QColor(0xF5, 0xA6, 0x23)).has,
                 stale);
        QCOMPARE(look(image, QRect(0, size * 3 / 4, size / 4, size / 4), QColor(0x2F, 0x80, 0xED)).has,
                 update);
    }

    // The icon draws at any size and ratio the tray asks, keeping no earlier picture (a blurred value).
    void engineSizes()
    {
        QIcon icon(new TrayIconEngine(trayTitle(false, false), Qt::black));
        for (const auto &[logical, ratio] : {std::pair{22, 2.0}, {32, 1.0}, {22, 2.0}, {16, 1.5}}) {
            const QPixmap pixmap = icon.pixmap(QSize(logical, logical), ratio);
            QCOMPARE(pixmap.deviceIndependentSize(), QSizeF(logical, logical));
            QCOMPARE(pixmap.devicePixelRatio(), ratio);
        }

        // An XEmbed tray paints its slot through the icon: the sharp picture of the slot's device pixels.
        QImage slot(QSize(22, 22) * 2, QImage::Format_ARGB32_Premultiplied);
        slot.setDevicePixelRatio(2);
        slot.fill(Qt::transparent);
        QPainter painter(&slot);
        icon.paint(&painter, QRect(0, 0, 22, 22));
        painter.end();
        QCOMPARE(look(slot, QRect(11, 18, 22, 8), Qt::black).maxAlpha, 255);
        QCOMPARE(slot, icon.pixmap(QSize(22, 22), 2.0).toImage().convertToFormat(slot.format()));
    }
};

QTEST_MAIN(TestPanel)
#include "tst_panel.moc"
