#include "LiveStore.h"
#include "LogCapture.h"
#include "LoginItem.h"
#include "SettingsView.h"
#include "SystemStyle.h"
#include "WindowRegistry.h"

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

const QString category = u"com.nordvik.glinta.SettingsView"_s;

template <typename T> T *byText(const QWidget *root, const QString &text)
{
    for (T *candidate : root->findChildren<T *>()) {
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
    QWidget *window = nullptr;
    QCheckBox *launch = nullptr;

    bool openSettings()
    {
        window = windows->open(u"settings"_s);
        if (!window || !QTest::qWaitForWindowExposed(window))
            return false;
        launch = byText<QCheckBox>(window, u"Launch Glinta at login"_s);
        return launch;
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

    void toggleFollowsTheLoginItem()
    {
        LogCapture log;
        QVERIFY(openSettings());
        QVERIFY(!launch->isChecked());
        clickToggle(launch);
        QVERIFY(launch->isChecked());
        QCOMPARE(loginItem->status(), LoginItem::Status::enabled);
        // The keyboard reaches it too.
        launch->setFocus();
        QTest::keyClick(launch, Qt::Key_Space);
        QVERIFY(!launch->isChecked());
        QVERIFY(!QFile::exists(loginItem->filePath()));
        QVERIFY(log.inCategory(category).isEmpty());

        // Changed behind the window's back (the desktop's own startup settings): read again when shown.
        window->hide();
        loginItem->registerItem();
        window->show();
        QVERIFY(launch->isChecked());
    }

    void refusedChangeSpringsBack()
    {
        QFile blocker(dir.filePath(u"file"_s));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        loginItem = std::make_unique<LoginItem>(dir.filePath(u"file/autostart"_s), u"/usr/bin/glinta"_s);
        LogCapture log;
        QVERIFY(openSettings());
        clickToggle(launch);
        QVERIFY(!launch->isChecked());
        const QList<LogCapture::Entry> lines = log.inCategory(category);
        QCOMPARE(lines.size(), 1);
        QCOMPARE(lines.first().type, QtCriticalMsg);
        QCOMPARE(lines.first().message, u"Launch at Login change failed: Not a directory"_s);
        QVERIFY(windows->window(u"settings"_s));
    }

    // The account follows the store; signing out asks first, and only its own button signs out.
    void accountAndSignOut_data()
    {
        QTest::addColumn<QString>("answer"); // empty: Escape
        QTest::addColumn<bool>("signsOut");
        QTest::newRow("Sign Out") << u"Sign Out"_s << true;
        QTest::newRow("Cancel") << u"Cancel"_s << false;
        QTest::newRow("Escape") << QString() << false;
    }

    void accountAndSignOut()
    {
        QFETCH(QString, answer);
        QFETCH(bool, signsOut);
        QVERIFY(openSettings());
        QLabel *account = byText<QLabel>(window, u"Not signed in"_s);
        QPushButton *signOut = byText<QPushButton>(window, u"Sign Out\u2026"_s);
        QVERIFY(account && signOut && !signOut->isVisible());
        QCOMPARE(account->palette().color(QPalette::WindowText), style::secondaryText(window->palette()));
        QCoro::waitFor(live->store->signIn(live->account().email, live->account().password)); // never throws
        QCOMPARE(account->text(), live->account().email);
        QCOMPARE(account->palette().color(QPalette::WindowText), style::primaryText(window->palette()));
        QVERIFY(signOut->isVisible());

        // Shown without an event loop of its own, or the click would not return.
        QTest::mouseClick(signOut, Qt::LeftButton);
        const QPointer<QMessageBox> alert = window->findChild<SettingsView *>()->signOutAlert();
        QVERIFY(alert);
        QVERIFY(QTest::qWaitForWindowExposed(alert));
        const QList<QAbstractButton *> buttons = alert->buttons();
        QCOMPARE(buttons.size(), 2);
        QCOMPARE(
            (QStringList{alert->text(), alert->informativeText(), buttons[0]->text(), buttons[1]->text()}),
            (QStringList{u"Sign out of LibreLinkUp?"_s,
                         u"Glinta will forget the saved password and stop showing readings. You can "
                         u"sign in again at any time."_s,
                         u"Sign Out"_s, u"Cancel"_s}));
        QCOMPARE(alert->defaultButton(), buttons[0]);

        if (answer.isEmpty())
            QTest::keyClick(alert, Qt::Key_Escape);
        else
            QTest::mouseClick(byText<QPushButton>(alert, answer), Qt::LeftButton);
        QTRY_VERIFY(!alert);
        QCOMPARE(live->store->savedEmail().has_value(), !signsOut);
        QTest::qWait(20);
        QTRY_COMPARE(windows->window(u"settings"_s) == nullptr, signsOut);
    }
};

QTEST_MAIN(TestSettingsView)
#include "tst_settingsview.moc"