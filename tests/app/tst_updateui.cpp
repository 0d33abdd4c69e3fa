#include "LogCapture.h"
#include "Preferences.h"
#include "ProgressSpinner.h"
#include "StandardUserDriver.h"
#include "SystemStyle.h"
#include "UpdateBannerView.h"
#include "UpdateWatcher.h"
#include "UpdateWindow.h"
#include "Updater.h"

#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBrowser>
#include <QVBoxLayout>

#include <memory>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QString updatesCategory = u"com.nordvik.glinta.Updates"_s;
const QString runningVersion = u"1.3.4"_s;
const QString attentionLine = u"Sparkle showed its window; badge stays until acted on"_s;

AppcastItem offer(const QString &version, const QString &notes = u"<p>Faster <b>sync</b></p>"_s,
                  const QUrl &notesLink = {})
{
    AppcastItem item;
    item.title = u"Glinta "_s + version;
    item.version = u"200"_s;
    item.displayVersionString = version;
    item.downloadPage = QUrl(u"https://example.com/glinta"_s);
    item.releaseNotes = notes;
    item.releaseNotesLink = notesLink;
    return item;
}

QString name(UpdateChoice choice)
{
    switch (choice) {
    case UpdateChoice::install:
        return u"install"_s;
    case UpdateChoice::remindLater:
        return u"remindLater"_s;
    case UpdateChoice::skip:
        return u"skip"_s;
    }
    return u"?"_s;
}

// Every reply an offer gets, by name, so that "exactly once" is a list of one.
struct Replies
{
    std::shared_ptr<QStringList> choices = std::make_shared<QStringList>();

    std::function<void(UpdateChoice)> recorder() const
    {
        return [choices = choices](UpdateChoice choice) { choices->append(name(choice)); };
    }
};

QString labelText(const QWidget *root, const QString &objectName)
{
    const auto *label = root->findChild<QLabel *>(objectName);
    return label ? label->text() : u"<missing>"_s;
}

bool shows(const QWidget *root, const QString &objectName)
{
    const auto *widget = root->findChild<QWidget *>(objectName);
    return widget && widget->isVisible();
}

template <typename T> T *withText(const QWidget *root, const QString &text)
{
    const QList<T *> candidates = root->findChildren<T *>();
    for (T *candidate : candidates) {
        if (candidate->text() == text)
            return candidate;
    }
    return nullptr;
}

bool windowShows(const StandardUserDriver &driver)
{
    return driver.window() && driver.window()->isVisible();
}

class FakeUpdater : public Updater
{
public:
    explicit FakeUpdater(Preferences *preferences) : m_preferences(preferences) {}

    int checks = 0;
    // What the waiting version was when the check started.
    std::optional<QString> versionAtCheck;

    bool canCheckForUpdates() const override { return true; }
    void checkForUpdates() override
    {
        ++checks;
        versionAtCheck = m_preferences->availableUpdateVersion();
    }

private:
    Preferences *m_preferences;
};

} // namespace

class TestUpdateUi : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Preferences> m_preferences;

    // A driver over a watcher, as the application wires them.
    struct Drive
    {
        explicit Drive(Preferences *preferences) : watcher(preferences), driver(&watcher, runningVersion) {}
        UpdateWatcher watcher;
        StandardUserDriver driver;
    };

    // Delivers one outcome of a user's check.
    static void deliver(StandardUserDriver &driver, const QString &outcome, const Replies &replies)
    {
        if (outcome == u"offer")
            driver.showUpdateFound(offer(u"1.3.5"_s), {true}, replies.recorder());
        else if (outcome == u"up to date")
            driver.showUpdateNotFound();
        else if (outcome == u"failure")
            driver.showUpdaterError(u"The update feed could not be reached."_s);
        else if (outcome == u"checking")
            driver.showCheckingForUpdates();
        else
            QFAIL("unknown outcome");
    }

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_preferences = std::make_unique<Preferences>(
            std::make_unique<QSettings>(m_dir->filePath(u"glinta.conf"_s), QSettings::IniFormat));
    }

    void cleanup()
    {
        m_preferences.reset();
        m_dir.reset();
    }

    void watcherBadgesOnlyScheduledFinds_data()
    {
        QTest::addColumn<bool>("userInitiated");
        QTest::addColumn<bool>("handleShowingUpdate");
        QTest::addColumn<QString>("stored");

        QTest::newRow("user's check") << true << true << QString();
        QTest::newRow("scheduled check") << false << false << u"1.3.5"_s;
        // Whether the driver shows the update itself is not what decides.
        QTest::newRow("scheduled, shown by the driver") << false << true << u"1.3.5"_s;
    }

    void watcherBadgesOnlyScheduledFinds()
    {
        QFETCH(bool, userInitiated);
        QFETCH(bool, handleShowingUpdate);
        QFETCH(QString, stored);

        const LogCapture log;
        UpdateWatcher watcher(m_preferences.get());
        watcher.standardUserDriverWillHandleShowingUpdate(handleShowingUpdate, offer(u"1.3.5"_s),
                                                          {userInitiated});

        QCOMPARE(m_preferences->availableUpdateVersion(),
                 stored.isNull() ? std::nullopt : std::optional(stored));
        QStringList lines;
        for (const LogCapture::Entry &entry : log.inCategory(updatesCategory))
            lines << entry.message;
        const QStringList expected =
            stored.isNull() ? QStringList() : QStringList{u"Update 1.3.5 waiting; badging the menu bar"_s};
        QCOMPARE(lines, expected);
    }

    void watcherKeepsBadgeWhenWindowSeen()
    {
        m_preferences->setAvailableUpdateVersion(u"1.3.5"_s);
        const LogCapture log;
        UpdateWatcher watcher(m_preferences.get());
        watcher.standardUserDriverDidReceiveUserAttentionForUpdate(offer(u"1.3.5"_s));

        QCOMPARE(m_preferences->availableUpdateVersion(), u"1.3.5"_s);
        const auto lines = log.inCategory(updatesCategory);
        QCOMPARE(lines.size(), 1);
        QCOMPARE(lines.first().type, QtInfoMsg);
        QCOMPARE(lines.first().message, attentionLine);
    }

    void scheduledOfferWaitsQuietly()
    {
        Drive drive(m_preferences.get());
        Replies replies;
        drive.driver.showUpdateFound(offer(u"1.3.5"_s), {false}, replies.recorder());

        // Not answered inside the updater's own call.
        QVERIFY(replies.choices->isEmpty());
        QTRY_COMPARE(*replies.choices, QStringList{u"remindLater"_s});
        QVERIFY(!windowShows(drive.driver));
        QCOMPARE(m_preferences->availableUpdateVersion(), u"1.3.5"_s);
    }

    void userOfferWindow()
    {
        const LogCapture log;
        Drive drive(m_preferences.get());
        Replies replies;
        drive.driver.showUpdateFound(offer(u"1.3.5"_s), {true}, replies.recorder());

        QVERIFY(windowShows(drive.driver));
        const UpdateWindow *window = drive.driver.window();
        QCOMPARE(window->windowTitle(), u"Software Update"_s);
        QCOMPARE(labelText(window, u"headline"_s), u"A new version of Glinta is available!"_s);
        QCOMPARE(labelText(window, u"message"_s),
                 u"Glinta 1.3.5 is now available — you have 1.3.4. Would you like to download it now?"_s);
        QCOMPARE(labelText(window, u"releaseNotesCaption"_s), u"Release Notes:"_s);
        QCOMPARE(window->findChild<QTextBrowser *>(u"releaseNotes"_s)->toPlainText(), u"Faster sync"_s);

        const auto *skip = withText<QPushButton>(window, u"Skip This Version"_s);
        const auto *later = withText<QPushButton>(window, u"Remind Me Later"_s);
        const auto *install = withText<QPushButton>(window, u"Install Update"_s);
        QVERIFY(skip && later && install);
        QVERIFY(skip->isVisible() && later->isVisible() && install->isVisible());
        QVERIFY(skip->mapTo(window, QPoint()).x() < later->mapTo(window, QPoint()).x());
        QVERIFY(later->mapTo(window, QPoint()).x() < install->mapTo(window, QPoint()).x());
        QVERIFY(install->isDefault());
        QVERIFY(!withText<QPushButton>(window, u"OK"_s)->isVisible());

        // The user asked: no badge, and the window's attention is reported once.
        QCOMPARE(m_preferences->availableUpdateVersion(), std::nullopt);
        const auto lines = log.inCategory(updatesCategory);
        QCOMPARE(lines.size(), 1);
        QCOMPARE(lines.first().message, attentionLine);
        QVERIFY(replies.choices->isEmpty());
    }

    void userOfferReplies_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("choice");

        QTest::newRow("skip") << u"Skip This Version"_s << u"skip"_s;
        QTest::newRow("later") << u"Remind Me Later"_s << u"remindLater"_s;
        QTest::newRow("install") << u"Install Update"_s << u"install"_s;
        QTest::newRow("Return presses the default") << u"Return"_s << u"install"_s;
        QTest::newRow("Escape") << u"Escape"_s << u"remindLater"_s;
        QTest::newRow("title bar") << u"close"_s << u"remindLater"_s;
    }

    void userOfferReplies()
    {
        QFETCH(QString, action);
        QFETCH(QString, choice);

        Drive drive(m_preferences.get());
        Replies replies;
        drive.driver.showUpdateFound(offer(u"1.3.5"_s), {true}, replies.recorder());
        UpdateWindow *window = drive.driver.window();
        QVERIFY(QTest::qWaitForWindowActive(window));

        if (action == u"Return")
            QTest::keyClick(window->focusWidget(), Qt::Key_Return);
        else if (action == u"Escape")
            QTest::keyClick(window->focusWidget(), Qt::Key_Escape);
        else if (action == u"close")
            window->close();
        else
            QTest::mouseClick(withText<QPushButton>(window, action), Qt::LeftButton);

        QCOMPARE(*replies.choices, QStringList{choice});
        QVERIFY(!window->isVisible());
        QTest::qWait(20);
        QCOMPARE(*replies.choices, QStringList{choice});
    }

    void secondOfferReplacesFirst()
    {
        Drive drive(m_preferences.get());
        Replies first;
        Replies second;
        drive.driver.showUpdateFound(offer(u"1.3.5"_s), {true}, first.recorder());
        drive.driver.showUpdateFound(offer(u"1.3.6"_s), {true}, second.recorder());

        QTRY_COMPARE(*first.choices, QStringList{u"remindLater"_s});
        QVERIFY(
            labelText(drive.driver.window(), u"message"_s).startsWith(u"Glinta 1.3.6 is now available"_s));
        QTest::mouseClick(withText<QPushButton>(drive.driver.window(), u"Install Update"_s), Qt::LeftButton);
        QCOMPARE(*second.choices, QStringList{u"install"_s});
        QCOMPARE(*first.choices, QStringList{u"remindLater"_s});
    }

    void checkScreens_data()
    {
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<QString>("headline");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("button");

        QTest::newRow("checking") << u"checking"_s << u"Checking for updates…"_s << QString() << u"Cancel"_s;
        QTest::newRow("up to date") << u"up to date"_s << u"You're up to date"_s
                                    << u"Glinta 1.3.4 is the newest version available."_s << u"OK"_s;
        QTest::newRow("failure") << u"failure"_s << u"Update check failed"_s
                                 << u"The update feed could not be reached."_s << u"OK"_s;
    }

    void checkScreens()
    {
        QFETCH(QString, outcome);
        QFETCH(QString, headline);
        QFETCH(QString, message);
        QFETCH(QString, button);

        Drive drive(m_preferences.get());
        deliver(drive.driver, outcome, {});
        QVERIFY(windowShows(drive.driver));
        const UpdateWindow *window = drive.driver.window();
        QCOMPARE(labelText(window, u"headline"_s), headline);
        QCOMPARE(shows(window, u"message"_s), !message.isNull());
        if (!message.isNull())
            QCOMPARE(labelText(window, u"message"_s), message);
        QCOMPARE(window->findChild<ProgressSpinner *>()->isVisible(), outcome == u"checking");
        QVERIFY(!shows(window, u"releaseNotes"_s));
        QVERIFY(!withText<QPushButton>(window, u"Install Update"_s)->isVisible());

        QTest::mouseClick(withText<QPushButton>(window, button), Qt::LeftButton);
        QVERIFY(!window->isVisible());
    }

    void cancelledCheck_data()
    {
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<bool>("shown");

        QTest::newRow("late offer") << u"offer"_s << true;
        QTest::newRow("late up to date") << u"up to date"_s << false;
        QTest::newRow("late failure") << u"failure"_s << false;
    }

    void cancelledCheck()
    {
        QFETCH(QString, outcome);
        QFETCH(bool, shown);

        Drive drive(m_preferences.get());
        drive.driver.showCheckingForUpdates();
        QTest::mouseClick(withText<QPushButton>(drive.driver.window(), u"Cancel"_s), Qt::LeftButton);
        deliver(drive.driver, outcome, {});
        QCOMPARE(windowShows(drive.driver), shown);

        // Only that check's outcome is dropped.
        drive.driver.showCheckingForUpdates();
        drive.driver.showUpdateNotFound();
        QVERIFY(windowShows(drive.driver));
        QCOMPARE(labelText(drive.driver.window(), u"headline"_s), u"You're up to date"_s);
    }

    void releaseNotes_data()
    {
        QTest::addColumn<QString>("notes");
        QTest::addColumn<QUrl>("link");
        QTest::addColumn<bool>("caption");
        QTest::addColumn<bool>("browser");
        QTest::addColumn<bool>("linkLabel");

        const QUrl page(u"https://example.com/notes/1.3.5.html"_s);
        QTest::newRow("notes") << u"<p>Faster</p>"_s << page << true << true << false;
        QTest::newRow("link only") << QString() << page << true << false << true;
        QTest::newRow("blank notes, link") << u"  \n"_s << page << true << false << true;
        QTest::newRow("neither") << QString() << QUrl() << false << false << false;
    }

    void releaseNotes()
    {
        QFETCH(QString, notes);
        QFETCH(QUrl, link);
        QFETCH(bool, caption);
        QFETCH(bool, browser);
        QFETCH(bool, linkLabel);

        Drive drive(m_preferences.get());
        drive.driver.showUpdateFound(offer(u"1.3.5"_s, notes, link), {true}, Replies().recorder());
        const UpdateWindow *window = drive.driver.window();
        QCOMPARE(shows(window, u"releaseNotesCaption"_s), caption);
        QCOMPARE(shows(window, u"releaseNotes"_s), browser);
        QCOMPARE(shows(window, u"releaseNotesLink"_s), linkLabel);
        if (linkLabel)
            QVERIFY(labelText(window, u"releaseNotesLink"_s).contains(u"href=\""_s + link.toString() + u'"'));
    }

    void bannerFollowsPreference()
    {
        QWidget panel;
        auto *layout = new QVBoxLayout(&panel);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(10);
        auto *banner = new UpdateBannerView(nullptr, m_preferences.get(), &panel);
        auto *below = new QLabel(u"below"_s, &panel);
        layout->addWidget(banner);
        layout->addWidget(below);
        panel.show();

        const auto settle = [&] { layout->activate(); };
        settle();
        QVERIFY(!banner->isVisible());
        QCOMPARE(below->y(), 0);

        m_preferences->setAvailableUpdateVersion(u"1.4"_s);
        settle();
        QVERIFY(banner->isVisible());
        QVERIFY(banner->height() > 0);
        QCOMPARE(below->y(), banner->height() + 10);
        QVERIFY(withText<QLabel>(banner, u"Glinta 1.4 is available"_s));
        QVERIFY(withText<QLabel>(banner, u"Click to install"_s));
        QCOMPARE(banner->accessibleName(), u"Glinta 1.4 is available. Click to install."_s);

        m_preferences->removeAvailableUpdateVersion();
        settle();
        QVERIFY(!banner->isVisible());
        QCOMPARE(below->y(), 0);
    }

    void bannerColours_data()
    {
        QTest::addColumn<QPalette>("palette");

        QTest::newRow("light") << style::lightPalette();
        QTest::newRow("dark") << style::darkPalette();
    }

    void bannerColours()
    {
        QFETCH(QPalette, palette);

        m_preferences->setAvailableUpdateVersion(u"1.4"_s);
        QWidget panel;
        // Starts in the other scheme, so the colours must follow the change.
        panel.setPalette(style::isDark(palette) ? style::lightPalette() : style::darkPalette());
        auto *banner = new UpdateBannerView(nullptr, m_preferences.get(), &panel);
        panel.setPalette(palette);

        const auto shown = [](const QLabel *label) {
            return label->palette().color(label->foregroundRole());
        };
        QCOMPARE(shown(withText<QLabel>(banner, u"Glinta 1.4 is available"_s)), style::primaryText(palette));
        QCOMPARE(shown(withText<QLabel>(banner, u"Click to install"_s)), style::secondaryText(palette));
        const QList<QLabel *> labels = banner->findChildren<QLabel *>();
        const auto symbol = std::find_if(labels.begin(), labels.end(),
                                         [](const QLabel *label) { return !label->pixmap().isNull(); });
        QVERIFY(symbol != labels.end());
        const QImage drawn = (*symbol)->pixmap().toImage();
        // The top of the disc.
        QCOMPARE(drawn.pixelColor(drawn.width() / 2, drawn.height() / 6).rgb(), style::accent(palette).rgb());
    }

    void bannerClick_data()
    {
        QTest::addColumn<QString>("trigger");
        QTest::addColumn<bool>("withUpdater");

        QTest::newRow("mouse on the text") << u"mouse"_s << true;
        QTest::newRow("Space") << u"Space"_s << true;
        QTest::newRow("Return") << u"Return"_s << true;
        QTest::newRow("no updater") << u"mouse"_s << false;
    }

    void bannerClick()
    {
        QFETCH(QString, trigger);
        QFETCH(bool, withUpdater);

        m_preferences->setAvailableUpdateVersion(u"1.4"_s);
        FakeUpdater updater(m_preferences.get());
        QWidget panel;
        auto *layout = new QVBoxLayout(&panel);
        auto *banner = new UpdateBannerView(withUpdater ? &updater : nullptr, m_preferences.get(), &panel);
        layout->addWidget(banner);
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));

        if (trigger == u"mouse") {
            // Through the window, so that the labels on top must let the click through.
            const QLabel *title = withText<QLabel>(banner, u"Glinta 1.4 is available"_s);
            const QPoint at = title->mapTo(&panel, title->rect().center());
            QTest::mouseClick(panel.windowHandle(), Qt::LeftButton, {}, at);
        } else {
            banner->setFocus();
            QTest::keyClick(banner, trigger == u"Space" ? Qt::Key_Space : Qt::Key_Return);
        }

        QCOMPARE(m_preferences->availableUpdateVersion(), std::nullopt);
        QVERIFY(!banner->isVisible());
        QCOMPARE(updater.checks, withUpdater ? 1 : 0);
        // The key goes before the update window can show.
        QCOMPARE(updater.versionAtCheck, std::nullopt);
    }
};

QTEST_MAIN(TestUpdateUi)
#include "tst_updateui.moc"
