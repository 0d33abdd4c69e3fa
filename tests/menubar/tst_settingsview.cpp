#include "LiveStore.h"
#include "LogCapture.h"
#include "LoginItem.h"
#include "SettingsView.h"
#include "SystemStyle.h"
#include "WindowRegistry.h"

#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QString signOutText = u"Sign Out\u2026"_s;

template <typename T> T *byText(const QWidget *root, const QString &text)
{
    const QList<T *> candidates = root->findChildren<T *>();
    for (T *candidate : candidates) {
        if (candidate->text() == text)
            return candidate;
    }
    return nullptr;
}

// The check box takes clicks on its indicator and label, not on the blank rest of its row.
void clickToggle(QCheckBox *toggle)
{
    QTest::mouseClick(toggle, Qt::LeftButton, {}, QPoint(toggle->height() / 2, toggle->height() / 2));
}

} // namespace

class TestSettingsView : public QObject
{
    Q_OBJECT

    QTemporaryDir dir;
    std::unique_ptr<LoginItem> loginItem;
    std::unique_ptr<LiveStore> live;
    std::unique_ptr<WindowRegistry> windows;

    QWidget *openSettings()
    {
        QWidget *window = windows->open(u"settings"_s);
        if (window && !QTest::qWaitForWindowExposed(window))
            return nullptr;
        return window;
    }

    static QCheckBox *toggle(const QWidget *window)
    {
        return byText<QCheckBox>(window, u"Launch Glinta at login"_s);
    }

    bool signIn()
    {
        QCoro::waitFor(live->store->signIn(live->account().email, live->account().password)); // never throws
        return live->store->savedEmail().has_value();
    }

private Q_SLOTS:
    void init()
    {
        QVERIFY(dir.isValid());
        loginItem = std::make_unique<LoginItem>(dir.filePath(u"autostart"_s), u"/usr/bin/glinta"_s);
        live = std::make_unique<LiveStore>();
        windows = std::make_unique<WindowRegistry>();
        windows->declare(u"settings"_s, u"Glinta Settings"_s, [this] {
            return new SettingsView(live->store.get(), loginItem.get(), windows.get());
        });
    }

    void cleanup()
    {
        windows.reset();
        live.reset();
        loginItem->unregisterItem();
    }

    void toggleShowsTheLoginItem()
    {
        QWidget *window = openSettings();
        QVERIFY(window);
        QCheckBox *launch = toggle(window);
        QVERIFY(launch);
        QVERIFY(!launch->isChecked());

        // Changed behind the window's back (the desktop's own startup settings): read again when shown.
        window->hide();
        loginItem->registerItem();
        window->show();
        QVERIFY(launch->isChecked());
        windows->dismiss(u"settings"_s);
        QTRY_VERIFY(!windows->window(u"settings"_s));

        window = openSettings();
        QVERIFY(window);
        QVERIFY(toggle(window)->isChecked());
        QCOMPARE(window->findChild<SettingsView *>()->width(), 420);
    }

    void clickingChangesTheLoginItem()
    {
        LogCapture log;
        QWidget *window = openSettings();
        QVERIFY(window);
        QCheckBox *launch = toggle(window);

        clickToggle(launch);
        QVERIFY(launch->isChecked());
        QVERIFY(QFile::exists(loginItem->filePath()));
        QCOMPARE(loginItem->status(), LoginItem::Status::enabled);

        // The keyboard reaches it too.
        launch->setFocus();
        QTest::keyClick(launch, Qt::Key_Space);
        QVERIFY(!launch->isChecked());
        QVERIFY(!QFile::exists(loginItem->filePath()));
        QVERIFY(log.inCategory(u"com.nordvik.glinta.SettingsView"_s).isEmpty());
    }

    void refusedChangeSpringsBack()
    {
        QFile blocker(dir.filePath(u"file"_s));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        loginItem = std::make_unique<LoginItem>(dir.filePath(u"file/autostart"_s), u"/usr/bin/glinta"_s);
        LogCapture log;
        QWidget *window = openSettings();
        QVERIFY(window);
        QCheckBox *launch = toggle(window);

        clickToggle(launch);
        QVERIFY(!launch->isChecked());
        const QList<LogCapture::Entry> lines = log.inCategory(u"com.nordvik.glinta.SettingsView"_s);
        QCOMPARE(lines.size(), 1);
        QCOMPARE(lines.first().type, QtCriticalMsg);
        QCOMPARE(lines.first().message, u"Launch at Login change failed: Not a directory"_s);
        QVERIFY(windows->window(u"settings"_s));
    }

    void accountFollowsTheStore()
    {
        QWidget *window = openSettings();
        QVERIFY(window);
        QLabel *account = byText<QLabel>(window, u"Not signed in"_s);
        QVERIFY(account);
        QCOMPARE(account->palette().color(QPalette::WindowText), style::secondaryText(window->palette()));
        QPushButton *signOut = byText<QPushButton>(window, signOutText);
        QVERIFY(signOut);
        QVERIFY(!signOut->isVisible());

        QVERIFY(signIn());
        QCOMPARE(account->text(), live->account().email);
        QCOMPARE(account->palette().color(QPalette::WindowText), style::primaryText(window->palette()));
        QVERIFY(signOut->isVisible());

        // Both controls are on the keyboard's way, named as they read.
        QVERIFY(QTest::qWaitForWindowActive(window));
        QCheckBox *launch = toggle(window);
        launch->setFocus();
        QTest::keyClick(launch, Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), signOut);
        QCOMPARE(launch->accessibleName(), launch->text());
        QCOMPARE(signOut->accessibleName(), signOut->text());
    }

    void signOutAsksFirst_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<bool>("signsOut");

        QTest::newRow("Sign Out") << u"Sign Out"_s << true;
        QTest::newRow("Cancel") << u"Cancel"_s << false;
        QTest::newRow("Escape") << QString() << false;
    }

    void signOutAsksFirst()
    {
        QFETCH(QString, answer);
        QFETCH(bool, signsOut);

        QVERIFY(signIn());
        QWidget *window = openSettings();
        QVERIFY(window);
        auto *view = window->findChild<SettingsView *>();
        QTest::mouseClick(byText<QPushButton>(window, signOutText), Qt::LeftButton);

        // Shown without an event loop of its own, or the click above would not have returned.
        const QPointer<QMessageBox> alert = view->signOutAlert();
        QVERIFY(alert);
        QVERIFY(QTest::qWaitForWindowExposed(alert));
        QCOMPARE(alert->windowModality(), Qt::WindowModal);
        QCOMPARE(alert->text(), u"Sign out of LibreLinkUp?"_s);
        QCOMPARE(alert->informativeText(), u"Glinta will forget the saved password and stop showing "
                                           u"readings. You can sign in again at any time."_s);
        QCOMPARE(alert->icon(), QMessageBox::Warning);
        const QList<QAbstractButton *> buttons = alert->buttons();
        QCOMPARE(buttons.size(), 2);
        QCOMPARE(buttons.at(0)->text(), u"Sign Out"_s);
        QCOMPARE(buttons.at(1)->text(), u"Cancel"_s);
        QCOMPARE(alert->defaultButton(), buttons.at(0));
        QCOMPARE(alert->escapeButton(), buttons.at(1));

        if (answer.isEmpty())
            QTest::keyClick(alert, Qt::Key_Escape);
        else
            QTest::mouseClick(byText<QPushButton>(alert, answer), Qt::LeftButton);
        QTRY_VERIFY(!alert);

        QCOMPARE(live->store->savedEmail().has_value(), !signsOut);
        QTRY_COMPARE(windows->window(u"settings"_s) == nullptr, signsOut);
        if (!signsOut) {
            QTest::qWait(20);
            QVERIFY(windows->window(u"settings"_s));
        }
    }
};

QTEST_MAIN(TestSettingsView)
#include "tst_settingsview.moc"
