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

// Every reply an offer gets, so that "exactly once" is a list of one.
using Choices = std::shared_ptr<QList<UpdateChoice>>;

std::function<void(UpdateChoice)> recorder(const Choices &choices)
{
    return [choices](UpdateChoice choice) { choices->append(choice); };
}

AppcastItem offer(const QString &version, const QString &notes = u"<p>Faster <b>sync</b></p>"_s,
                  const QUrl &notesLink = {})
{
    return {
        u"Glinta "_s + version, u"200"_s, version, QUrl(u"https://example.com/glinta"_s), notes, notesLink};
}

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
    for (T *candidate : root->findChildren<T *>()) {
        if (candidate->text() == text)
            return candidate;
    }
    return nullptr;
}

// The buttons on screen, left to right.
QStringList visibleButtons(const QWidget *window)
{
    QList<QPushButton *> buttons = window->findChildren<QPushButton *>();
    buttons.removeIf([](const QPushButton *button) { return !button->isVisible(); });
    std::sort(buttons.begin(), buttons.end(), [window](const QPushButton *a, const QPushButton *b) {
        return a->mapTo(window, QPoint()).x() < b->mapTo(window, QPoint()).x();
    });
    QStringList texts;
    for (const QPushButton *button : buttons)
        texts << button->text();
    return texts;
}

// Notes the waiting version at each check.
class FakeUpdater : public Updater
{
public:
    explicit FakeUpdater(Preferences *preferences) : m_preferences(preferences) {}
    bool canCheckForUpdates() const override { return true; }
    void checkForUpdates() override
    {
        waiting << m_preferences->availableUpdateVersion().value_or(u"none"_s);
    }

    QStringList waiting;

private:
    Preferences *m_preferences;
};

} // namespace

class TestUpdateUi : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Preferences> m_preferences;
    // The driver over a watcher, as the application wires them.
    std::unique_ptr<UpdateWatcher> m_watcher;
    std::unique_ptr<StandardUserDriver> m_driver;
    Choices m_choices;

    UpdateWindow *window() const { return m_driver->window(); }
    bool windowShows() const { return window() && window()->isVisible(); }

    // Delivers one outcome of a user's check; an offer's replies go to m_choices.
    void deliver(const QString &outcome)
    {
        if (outcome == u"offer")
            m_driver->showUpdateFound(offer(u"1.3.5"_s), {true}, recorder(m_choices));
        else if (outcome == u"up to date")
            m_driver->showUpdateNotFound();
        else if (outcome == u"failure")
            m_driver->showUpdaterError(u"The update feed could not be reached."_s);
        else if (outcome == u"checking")
            m_driver->showCheckingForUpdates();
        else
            QFAIL("unknown outcome");
    }

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_preferences = std::make_unique<Preferences>(
            std::make_unique<QSettings>(m_dir->filePath(u"glinta.conf"_s), QSettings::IniFormat));
        m_watcher = std::make_unique<UpdateWatcher>(m_preferences.get());
        m_driver = std::make_unique<StandardUserDriver>(m_watcher.get(), u"1.3.4"_s);
        m_choices = std::make_shared<QList<UpdateChoice>>();
    }

    void cleanup()
    {
        m_driver.reset();
        m_watcher.reset();
        m_preferences.reset();
    }

    void offerByWhoAsked_data()
    {
        QTest::addColumn<bool>("userInitiated");
        QTest::addColumn<QString>("badgeBefore"); // null: none
        QTest::addColumn<QString>("badgeAfter");
        QTest::addColumn<QString>("logged");

        // A scheduled find waits behind the badge; the user's own check shows the window, which leaves a
        // badge alone.
        QTest::newRow("scheduled") << false << QString() << u"1.3.5"_s
                                   << u"Update 1.3.5 waiting; badging the menu bar"_s;
        QTest::newRow("the user's, badge up")
            << true << u"1.3.3"_s << u"1.3.3"_s << u"Sparkle showed its window; badge stays until acted on"_s;
    }

    void offerByWhoAsked()
    {
        QFETCH(bool, userInitiated);
        QFETCH(QString, badgeBefore);
        QFETCH(QString, badgeAfter);
        QFETCH(QString, logged);

        if (!badgeBefore.isNull())
            m_preferences->setAvailableUpdateVersion(badgeBefore);
        const LogCapture log;
        m_driver->showUpdateFound(offer(u"1.3.5"_s), {userInitiated}, recorder(m_choices));

        QCOMPARE(windowShows(), userInitiated);
        QCOMPARE(m_preferences->availableUpdateVersion(), std::optional(badgeAfter));
        QStringList lines;
        for (const LogCapture::Entry &entry : log.inCategory(u"com.nordvik.glinta.Updates"_s))
            lines << entry.message;
        QCOMPARE(lines, QStringList{logged});
        // Never answered inside the updater's own call; the scheduled find hears "later" after it.
        QVERIFY(m_choices->isEmpty());
        if (!userInitiated)
            QTRY_COMPARE(*m_choices, QList{UpdateChoice::remindLater});
    }

    void windowScreens_data()
    {
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<QString>("headline");
        QTest::addColumn<QString>("message"); // null: none shown
        QTest::addColumn<QStringList>("buttons");

        QTest::newRow("offer")
            << u"offer"_s << u"A new version of Glinta is available!"_s
            << u"Glinta 1.3.5 is now available — you have 1.3.4. Would you like to download it now?"_s
            << QStringList{u"Skip This Version"_s, u"Remind Me Later"_s, u"Install Update"_s};
        QTest::newRow("checking") << u"checking"_s << u"Checking for updates…"_s << QString()
                                  << QStringList{u"Cancel"_s};
        QTest::newRow("up to date") << u"up to date"_s << u"You're up to date"_s
                                    << u"Glinta 1.3.4 is the newest version available."_s
                                    << QStringList{u"OK"_s};
        QTest::newRow("failure") << u"failure"_s << u"Update check failed"_s
                                 << u"The update feed could not be reached."_s << QStringList{u"OK"_s};
    }

    void windowScreens()
    {
        QFETCH(QString, outcome);
        QFETCH(QString, headline);
        QFETCH(QString, message);
        QFETCH(QStringList, buttons);

        // Each screen replaces the offer on the window, which hears "later", once: else the updater would
        // stay busy for good.
        const Choices first = std::make_shared<QList<UpdateChoice>>();
        m_driver->showUpdateFound(offer(u"1.3.6"_s), {true}, recorder(first));
        deliver(outcome);
        QTRY_COMPARE(*first, QList{UpdateChoice::remindLater});
        QVERIFY(windowShows());
        QCOMPARE(window()->windowTitle(), u"Software Update"_s);
        QCOMPARE(labelText(window(), u"headline"_s), headline);
        QCOMPARE(shows(window(), u"message"_s), !message.isNull());
        if (!message.isNull())
            QCOMPARE(labelText(window(), u"message"_s), message);
        QCOMPARE(window()->findChild<ProgressSpinner *>()->isVisible(), outcome == u"checking");
        QCOMPARE(shows(window(), u"releaseNotes"_s), outcome == u"offer");
        QCOMPARE(visibleButtons(window()), buttons);

        // Return presses the default button, which closes the window.
        QVERIFY(m_choices->isEmpty());
        QTest::keyClick(window()->focusWidget(), Qt::Key_Return);
        QVERIFY(!window()->isVisible());
        QCOMPARE(*m_choices, outcome == u"offer" ? QList{UpdateChoice::install} : QList<UpdateChoice>());
        QCOMPARE(*first, QList{UpdateChoice::remindLater});
    }

    void offerReplies_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<UpdateChoice>("choice");

        QTest::newRow("skip") << u"Skip This Version"_s << UpdateChoice::skip;
        QTest::newRow("later") << u"Remind Me Later"_s << UpdateChoice::remindLater;
        QTest::newRow("install") << u"Install Update"_s << UpdateChoice::install;
        QTest::newRow("Escape") << u"Escape"_s << UpdateChoice::remindLater;
        QTest::newRow("title bar") << u"close"_s << UpdateChoice::remindLater;
    }

    void offerReplies()
    {
        QFETCH(QString, action);
        QFETCH(UpdateChoice, choice);

        deliver(u"offer"_s);
        QVERIFY(QTest::qWaitForWindowActive(window()));
        if (action == u"Escape")
            QTest::keyClick(window()->focusWidget(), Qt::Key_Escape);
        else if (action == u"close")
            window()->close();
        else
            QTest::mouseClick(withText<QPushButton>(window(), action), Qt::LeftButton);

        QCOMPARE(*m_choices, QList{choice});
        QVERIFY(!window()->isVisible());
        QTest::qWait(20);
        QCOMPARE(*m_choices, QList{choice});
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

        m_driver->showCheckingForUpdates();
        QTest::mouseClick(withText<QPushButton>(window(), u"Cancel"_s), Qt::LeftButton);
        deliver(outcome);
        QCOMPARE(windowShows(), shown);

        // Only that check's outcome is dropped.
        m_driver->showCheckingForUpdates();
        m_driver->showUpdateNotFound();
        QVERIFY(windowShows());
        QCOMPARE(labelText(window(), u"headline"_s), u"You're up to date"_s);
    }

    void releaseNotes_data()
    {
        QTest::addColumn<QString>("notes");
        QTest::addColumn<QUrl>("link");
        QTest::addColumn<QString>("shown"); // in the browser; null: no browser
        QTest::addColumn<bool>("caption");
        QTest::addColumn<bool>("linkLabel");

        const QUrl page(u"https://example.com/notes/1.3.5.html"_s);
        QTest::newRow("notes") << u"<p>Faster <b>sync</b></p>"_s << page << u"Faster sync"_s << true << false;
        QTest::newRow("link only") << QString() << page << QString() << true << true;
        QTest::newRow("blank notes, link") << u"  \n"_s << page << QString() << true << true;
        QTest::newRow("neither") << QString() << QUrl() << QString() << false << false;
    }

    void releaseNotes()
    {
        QFETCH(QString, notes);
        QFETCH(QUrl, link);
        QFETCH(QString, shown);
        QFETCH(bool, caption);
        QFETCH(bool, linkLabel);

        m_driver->showUpdateFound(offer(u"1.3.5"_s, notes, link), {true}, recorder(m_choices));
        QCOMPARE(shows(window(), u"releaseNotesCaption"_s), caption);
        QCOMPARE(labelText(window(), u"releaseNotesCaption"_s), u"Release Notes:"_s);
        QCOMPARE(shows(window(), u"releaseNotes"_s), !shown.isNull());
        if (!shown.isNull())
            QCOMPARE(window()->findChild<QTextBrowser *>(u"releaseNotes"_s)->toPlainText(), shown);
        QCOMPARE(shows(window(), u"releaseNotesLink"_s), linkLabel);
        if (linkLabel)
            QVERIFY(
                labelText(window(), u"releaseNotesLink"_s).contains(u"href=\""_s + link.toString() + u'"'));
    }

    void bannerClick_data()
    {
        QTest::addColumn<QString>("trigger");
        QTest::addColumn<bool>("withUpdater");
        QTest::addColumn<QPalette>("palette");

        const QPalette light = style::lightPalette();
        const QPalette dark = style::darkPalette();
        QTest::newRow("mouse on the text, light") << u"mouse"_s << true << light;
        QTest::newRow("Space, dark") << u"Space"_s << true << dark;
        QTest::newRow("Return, light") << u"Return"_s << true << light;
        QTest::newRow("no updater, dark") << u"mouse"_s << false << dark;
    }

    void bannerClick()
    {
        QFETCH(QString, trigger);
        QFETCH(bool, withUpdater);
        QFETCH(QPalette, palette);

        FakeUpdater updater(m_preferences.get());
        QWidget panel;
        // Starts in the other scheme, so the colours must follow the change.
        panel.setPalette(style::isDark(palette) ? style::lightPalette() : style::darkPalette());
        auto *layout = new QVBoxLayout(&panel);
        auto *banner = new UpdateBannerView(withUpdater ? &updater : nullptr, m_preferences.get(), &panel);
        layout->addWidget(banner);
        panel.setPalette(palette);
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));
        QVERIFY(!banner->isVisible());

        m_preferences->setAvailableUpdateVersion(u"1.4"_s);
        layout->activate();
        QVERIFY(banner->isVisible());
        const QLabel *title = withText<QLabel>(banner, u"Glinta 1.4 is available"_s);
        const QLabel *subtitle = withText<QLabel>(banner, u"Click to install"_s);
        QVERIFY(title && subtitle);
        QCOMPARE(banner->accessibleName(), u"Glinta 1.4 is available. Click to install."_s);
        const auto ink = [](const QLabel *label) { return label->palette().color(label->foregroundRole()); };
        QCOMPARE(ink(title), style::primaryText(palette));
        QCOMPARE(ink(subtitle), style::secondaryText(palette));
        const QList<QLabel *> labels = banner->findChildren<QLabel *>();
        const auto symbol = std::find_if(labels.begin(), labels.end(),
                                         [](const QLabel *label) { return !label->pixmap().isNull(); });
        QVERIFY(symbol != labels.end());
        const QImage drawn = (*symbol)->pixmap().toImage();
        // The top of the disc.
        QCOMPARE(drawn.pixelColor(drawn.width() / 2, drawn.height() / 6).rgb(), style::accent(palette).rgb());

        if (trigger == u"mouse") {
            // Through the window, so that the labels on top must let the click through.
            const QPoint at = title->mapTo(&panel, title->rect().center());
            QTest::mouseClick(panel.windowHandle(), Qt::LeftButton, {}, at);
        } else {
            banner->setFocus();
            QTest::keyClick(banner, trigger == u"Space" ? Qt::Key_Space : Qt::Key_Return);
        }

        QCOMPARE(m_preferences->availableUpdateVersion(), std::nullopt);
        QVERIFY(!banner->isVisible());
        // The key goes before the update window can show.
        QCOMPARE(updater.waiting, withUpdater ? QStringList{u"none"_s} : QStringList());
    }
};

QTEST_MAIN(TestUpdateUi)
#include "tst_updateui.moc"
