#include "TestSupport.h"
#include "ViewLookup.h"
#include "app/StandardUserDriver.h"
#include "app/UpdateWatcher.h"
#include "app/UpdateWindow.h"
#include "menubar/UpdateBannerView.h"
#include "store/Preferences.h"
#include "update/Updater.h"

#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

AppcastItem offer(const QString &version)
{
    return {u"Glinta "_s + version, u"200"_s, version, QUrl(u"https://example.com/glinta"_s), {}, {}};
}

// The buttons on screen, in the order they were made, which is their order from left to right.
QStringList visibleButtons(const QWidget *window)
{
    QStringList texts;
    for (const QPushButton *button : window->findChildren<QPushButton *>()) {
        if (button->isVisible())
            texts << button->text();
    }
    return texts;
}

struct FakeUpdater : Updater
{
    explicit FakeUpdater(Preferences *preferences) : preferences(preferences) {}
    bool canCheckForUpdates() const override { return true; }
    void checkForUpdates() override { waiting << preferences->availableUpdateVersion().value_or(u"-"_s); }

    Preferences *preferences;
    QStringList waiting;
};

} // namespace

class TestUpdateUi : public QObject
{
    Q_OBJECT

    // The driver over a watcher, as the application wires them, on preferences of their own.
    struct Rig
    {
        QTemporaryDir dir;
        Preferences preferences{
            std::make_unique<QSettings>(dir.filePath(u"glinta.conf"_s), QSettings::IniFormat)};
        UpdateWatcher watcher{&preferences};
        StandardUserDriver driver{&watcher, u"1.3.4"_s};
        // Every reply an offer got, so that "exactly once" is a list of one.
        QList<UpdateChoice> choices;
    };
    std::unique_ptr<Rig> m;

    UpdateWindow *window() const { return m->driver.window(); }
    QString shown(const QString &n) const { return shows(window(), n) ? text(window(), n) : QString(); }
    bool windowShows() const { return window() && window()->isVisible(); }
    auto recorder()
    {
        return [this](UpdateChoice c) { m->choices.append(c); };
    }

    void deliver(const QString &outcome)
    {
        if (outcome == u"offer")
            m->driver.showUpdateFound(offer(u"1.3.5"_s), {true}, recorder());
        else if (outcome == u"up to date")
            m->driver.showUpdateNotFound();
        else if (outcome == u"failure")
            m->driver.showUpdaterError(u"The update feed could not be reached."_s);
        else
            m->driver.showCheckingForUpdates();
    }

private Q_SLOTS:
    void init() { m = std::make_unique<Rig>(); }

    // A scheduled find waits behind the badge, no window, and hears "later" once the updater's call returns.
    void scheduledOffer()
    {
        m->driver.showUpdateFound(offer(u"1.3.5"_s), {false}, recorder());
        QVERIFY(!windowShows());
        QCOMPARE(m->preferences.availableUpdateVersion(), std::optional(u"1.3.5"_s));
        QVERIFY(m->choices.isEmpty());
        QTRY_COMPARE(m->choices, QList{UpdateChoice::remindLater});
    }

    // Each screen and each way to answer it. A screen replacing the offer on the window tells it "later",
    // once, or the updater would stay busy for good; the user's own check leaves a badge alone.
    void screens_data()
    {
        // message: null when none shows; answer: a button or a key; choices: what the offer on screen hears
        columns<QString, QString, QString, QStringList, QString, QList<UpdateChoice>>(
            "outcome", "headline", "message", "buttons", "answer", "choices");

        const auto row = [](const char *name, const QString &outcome, const QString &headline,
                            const QString &message, const QStringList &buttons,
                            const QString &answer = u"Return"_s, const QList<UpdateChoice> &choices = {}) {
            QTest::newRow(name) << outcome << headline << message << buttons << answer << choices;
        };
        const QStringList offerButtons{u"Skip This Version"_s, u"Remind Me Later"_s, u"Install Update"_s};
        const auto offerRow = [&](const char *name, const QString &answer, UpdateChoice choice) {
            row(name, u"offer"_s, u"A new version of Glinta is available!"_s,
                u"Glinta 1.3.5 is now available — you have 1.3.4. Would you like to download it now?"_s,
                offerButtons, answer, {choice});
        };
        // Return presses the default button, Install for an offer.
        offerRow("offer, Return", u"Return"_s, UpdateChoice::install);
        offerRow("offer, skip", offerButtons[0], UpdateChoice::skip);
        offerRow("offer, later", offerButtons[1], UpdateChoice::remindLater);
        offerRow("offer, Escape", u"Escape"_s, UpdateChoice::remindLater);
        row("checking", u"checking"_s, u"Checking for updates…"_s, QString(), {u"Cancel"_s});
        row("up to date", u"up to date"_s, u"You're up to date"_s,
            u"Glinta 1.3.4 is the newest version available."_s, {u"OK"_s});
        row("failure", u"failure"_s, u"Update check failed"_s, u"The update feed could not be reached."_s,
            {u"OK"_s});
    }

    void screens()
    {
        const auto [outcome, answer] = fetch<QString, QString>("outcome", "answer");

        m->preferences.setAvailableUpdateVersion(u"1.3.3"_s);
        m->driver.showUpdateFound(offer(u"1.3.6"_s), {true}, recorder());
        QCOMPARE(m->preferences.availableUpdateVersion(), std::optional(u"1.3.3"_s));
        deliver(outcome);
        QTRY_COMPARE(m->choices, QList{UpdateChoice::remindLater});
        QVERIFY(QTest::qWaitForWindowActive(window()));
        QTEST(shown(u"headline"_s), "headline");
        QTEST(shown(u"message"_s), "message");
        QTEST(visibleButtons(window()), "buttons");

        if (answer == u"Return" || answer == u"Escape")
            QTest::keyClick(window()->focusWidget(), answer == u"Return" ? Qt::Key_Return : Qt::Key_Escape);
        else
            QTest::mouseClick(named<QPushButton>(window(), answer), Qt::LeftButton);
        QVERIFY(!window()->isVisible());
        QCoreApplication::sendPostedEvents(); // the replies are queued
        QTEST(m->choices.mid(1), "choices");
    }

    // Cancelling a check drops its outcome, unless that is an offer, and no later check's.
    void cancelledCheck_data()
    {
        columns<QString, bool>("outcome", "shown");

        QTest::newRow("late offer") << u"offer"_s << true;
        QTest::newRow("late up to date") << u"up to date"_s << false;
        QTest::newRow("late failure") << u"failure"_s << false;
    }

    void cancelledCheck()
    {
        QFETCH(QString, outcome);
        m->driver.showCheckingForUpdates();
        QTest::mouseClick(named<QPushButton>(window(), u"Cancel"_s), Qt::LeftButton);
        deliver(outcome);
        QTEST(windowShows(), "shown");

        m->driver.showCheckingForUpdates();
        m->driver.showUpdateNotFound();
        QCOMPARE(shown(u"headline"_s), u"You're up to date"_s);
    }

    void bannerClick_data()
    {
        QTest::addColumn<bool>("withUpdater");
        QTest::newRow("updater") << true;
        QTest::newRow("no updater") << false;
    }

    void bannerClick()
    {
        QFETCH(bool, withUpdater);

        FakeUpdater updater(&m->preferences);
        QWidget panel;
        // Starts light, so the colours must follow the change to dark.
        panel.setPalette(style::lightPalette());
        auto *layout = new QVBoxLayout(&panel);
        auto *banner = new UpdateBannerView(withUpdater ? &updater : nullptr, &m->preferences, &panel);
        layout->addWidget(banner);
        const QPalette dark = style::darkPalette();
        panel.setPalette(dark);
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel) && !banner->isVisible());

        m->preferences.setAvailableUpdateVersion(u"1.4"_s);
        layout->activate();
        QVERIFY(banner->isVisible());
        const QLabel *title = named<QLabel>(banner, u"Glinta 1.4 is available"_s);
        const QLabel *subtitle = named<QLabel>(banner, u"Click to install"_s);
        QVERIFY(title && subtitle);
        QCOMPARE(banner->accessibleName(), u"Glinta 1.4 is available. Click to install."_s);
        const auto inkOf = [](const QLabel *l) { return l->palette().color(l->foregroundRole()); };
        QCOMPARE(inkOf(title), style::primaryText(dark));
        QCOMPARE(inkOf(subtitle), style::secondaryText(dark));

        // Through the window, so that the labels on top must let the click through.
        QTest::mouseClick(panel.windowHandle(), Qt::LeftButton, {},
                          title->mapTo(&panel, title->rect().center()));
        QCOMPARE(m->preferences.availableUpdateVersion(), std::nullopt);
        QVERIFY(!banner->isVisible());
        // The key goes before the update window can show.
        QCOMPARE(updater.waiting, withUpdater ? QStringList{u"-"_s} : QStringList());
    }
};

QTEST_MAIN(TestUpdateUi)
#include "tst_updateui.moc"
