#include "LiveStore.h"
#include "LoginView.h"
#include "ProgressSpinner.h"
#include "SignInPromptView.h"
#include "WindowRegistry.h"

#include <QApplication>
#include <QDesktopServices>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace glinta;
using glinta::sim::Fault;

namespace {

template <typename T> T *byAccessibleName(const QWidget *root, const QString &name)
{
    const QList<T *> candidates = root->findChildren<T *>();
    for (T *candidate : candidates) {
        if (candidate->accessibleName() == name)
            return candidate;
    }
    return nullptr;
}

QPushButton *buttonWithText(const QWidget *root, const QString &text)
{
    const QList<QPushButton *> buttons = root->findChildren<QPushButton *>();
    for (QPushButton *button : buttons) {
        if (button->text() == text)
            return button;
    }
    return nullptr;
}

int liveLoginViews()
{
    int count = 0;
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (const QWidget *window : windows)
        count += int(window->findChildren<LoginView *>().size());
    return count;
}

// Stands in for the browser.
class UrlCatcher : public QObject
{
    Q_OBJECT

public:
    QList<QUrl> opened;

public Q_SLOTS:
    void open(const QUrl &url) { opened.append(url); }
};

} // namespace

class TestLoginView : public QObject
{
    Q_OBJECT

    std::unique_ptr<LiveStore> live;
    std::unique_ptr<WindowRegistry> windows;

    QWidget *openLogin()
    {
        QWidget *window = windows->open(u"login"_s);
        if (window && !QTest::qWaitForWindowExposed(window))
            return nullptr;
        return window;
    }

    struct Fields
    {
        QLineEdit *email = nullptr;
        QLineEdit *password = nullptr;
        QPushButton *signIn = nullptr;
    };

    static Fields fields(const QWidget *window)
    {
        return {byAccessibleName<QLineEdit>(window, u"Email"_s),
                byAccessibleName<QLineEdit>(window, u"Password"_s),
                byAccessibleName<QPushButton>(window, u"Sign In"_s)};
    }

private Q_SLOTS:
    void init()
    {
        live = std::make_unique<LiveStore>();
        windows = std::make_unique<WindowRegistry>();
        windows->declare(u"login"_s, u"Sign In to Glinta"_s,
                         [this] { return new LoginView(live->store.get(), windows.get()); });
    }

    void cleanup()
    {
        windows.reset();
        live.reset();
    }

    void buttonFollowsTheTexts_data()
    {
        QTest::addColumn<QString>("email");
        QTest::addColumn<QString>("password");
        QTest::addColumn<bool>("enabled");

        QTest::newRow("both empty") << QString() << QString() << false;
        QTest::newRow("no password") << u"a"_s << QString() << false;
        QTest::newRow("no email") << QString() << u"b"_s << false;
        QTest::newRow("one character each") << u"a"_s << u"b"_s << true;
        QTest::newRow("blanks count") << u" "_s << u" "_s << true;
    }

    void buttonFollowsTheTexts()
    {
        QFETCH(QString, email);
        QFETCH(QString, password);
        QFETCH(bool, enabled);

        QWidget *window = openLogin();
        QVERIFY(window);
        const Fields f = fields(window);
        QVERIFY(f.email && f.password && f.signIn);
        QTest::keyClicks(f.email, email);
        QTest::keyClicks(f.password, password);
        QCOMPARE(f.signIn->isEnabled(), enabled);
    }

    void focusAndTabOrder()
    {
        QWidget *window = openLogin();
        QVERIFY(window);
        QVERIFY(QTest::qWaitForWindowActive(window));
        const Fields f = fields(window);
        QTRY_COMPARE(QApplication::focusWidget(), f.email);
        QTest::keyClicks(f.email, u"a"_s);
        QTest::keyClick(f.email, Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), f.password);
        QTest::keyClicks(f.password, u"b"_s);
        QTest::keyClick(f.password, Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), f.signIn);
    }

    void returnDoesNotSubmit_data()
    {
        QTest::addColumn<QString>("field");
        QTest::newRow("in the email field") << u"Email"_s;
        QTest::newRow("in the password field") << u"Password"_s;
    }

    void returnDoesNotSubmit()
    {
        QFETCH(QString, field);

        QWidget *window = openLogin();
        QVERIFY(window);
        const Fields f = fields(window);
        QTest::keyClicks(f.email, live->account().email);
        QTest::keyClicks(f.password, live->account().password);
        QTest::keyClick(byAccessibleName<QLineEdit>(window, field), Qt::Key_Return);
        QTest::keyClick(byAccessibleName<QLineEdit>(window, field), Qt::Key_Enter);
        // Signing in turns the status to connecting at once.
        QCOMPARE(live->store->status().kind, GlucoseStore::Status::Kind::loggedOut);
        QTest::qWait(50);
        QCOMPARE(live->service.requestCount(u"login"_s), 0);
        QVERIFY(windows->window(u"login"_s));
    }

    void signInClosesTheWindowAndReopensEmpty()
    {
        live->service.addFault({u"login"_s, Fault::Kind::delay, 0, 0, {}, {}, 300ms, 1, {}});
        QWidget *window = openLogin();
        QVERIFY(window);
        Fields f = fields(window);
        QTest::keyClicks(f.email, live->account().email);
        QTest::keyClicks(f.password, live->account().password);
        const QSize size = f.signIn->size();

        QTest::mouseClick(f.signIn, Qt::LeftButton);
        QCOMPARE(live->store->status().kind, GlucoseStore::Status::Kind::connecting);
        auto *spinner = f.signIn->findChild<ProgressSpinner *>();
        QVERIFY(spinner);
        QVERIFY(spinner->isVisible());
        QVERIFY(f.signIn->text().isEmpty());
        QVERIFY(!f.signIn->isEnabled());
        QTest::qWait(20);
        QCOMPARE(f.signIn->size(), size);

        QTRY_VERIFY(!windows->window(u"login"_s));
        QCOMPARE(live->store->savedEmail(), std::optional(live->account().email));

        window = openLogin();
        QVERIFY(window);
        f = fields(window);
        QVERIFY(f.email->text().isEmpty());
        QVERIFY(f.password->text().isEmpty());
        QCOMPARE(liveLoginViews(), 1);
    }

    void closedWhileSigningIn()
    {
        live->service.addFault({u"login"_s, Fault::Kind::delay, 0, 0, {}, {}, 200ms, 1, {}});
        QWidget *window = openLogin();
        QVERIFY(window);
        const Fields f = fields(window);
        QTest::keyClicks(f.email, live->account().email);
        QTest::keyClicks(f.password, live->account().password);
        QTest::mouseClick(f.signIn, Qt::LeftButton);
        windows->dismiss(u"login"_s);
        QTRY_VERIFY(!windows->window(u"login"_s));

        // The sign-in goes on without the view, and a window opened meanwhile is left alone.
        const QPointer<QWidget> second = openLogin();
        QVERIFY(second);
        QTRY_COMPARE(live->store->savedEmail(), std::optional(live->account().email));
        QTest::qWait(20);
        QVERIFY(second);
    }

    void wrongPasswordKeepsTheWindow()
    {
        const QString message = u"LibreLinkUp rejected the email or password."_s;
        const QPointer<QWidget> window = openLogin();
        QVERIFY(window);
        const Fields f = fields(window);
        const auto shownMessage = [&] {
            for (const QLabel *label : window->findChildren<QLabel *>()) {
                if (label->isVisible() && label->text() == message)
                    return true;
            }
            return false;
        };
        QTest::keyClicks(f.email, live->account().email);
        QTest::keyClicks(f.password, u"wrong"_s);

        QTest::mouseClick(f.signIn, Qt::LeftButton);
        QTRY_COMPARE(live->store->status().kind, GlucoseStore::Status::Kind::failed);
        QTest::qWait(20); // the view's own task ends after the status changes
        QVERIFY(window);
        QVERIFY(shownMessage());
        QVERIFY(f.signIn->isEnabled());
        QCOMPARE(f.signIn->text(), u"Sign In"_s);
        QVERIFY(!f.signIn->findChild<ProgressSpinner *>()->isVisible());
        QCOMPARE(f.email->text(), live->account().email);
        QCOMPARE(f.password->text(), u"wrong"_s);

        // The next try hides the message again while it runs.
        QTest::keyClick(f.password, Qt::Key_Backspace);
        QTest::mouseClick(f.signIn, Qt::LeftButton);
        QVERIFY(!shownMessage());
        QTRY_COMPARE(live->store->status().kind, GlucoseStore::Status::Kind::failed);
    }

    void linkOpensSignUpSite()
    {
        UrlCatcher browser;
        QDesktopServices::setUrlHandler(u"https"_s, &browser, "open");
        QWidget *window = openLogin();
        QVERIFY(window);
        QLabel *link = byAccessibleName<QLabel>(window, u"Don't have an account? Set up LibreLinkUp\u2026"_s);
        QVERIFY(link);
        QTest::mouseClick(link, Qt::LeftButton, {}, QPoint(4, link->height() / 2));
        QDesktopServices::unsetUrlHandler(u"https"_s);
        QCOMPARE(browser.opened, QList{QUrl(u"https://www.librelinkup.com/"_s)});
    }

    void promptOpensOneLoginWindow()
    {
        SignInPromptView prompt(live->store.get(), windows.get());
        prompt.show();
        QVERIFY(QTest::qWaitForWindowExposed(&prompt));
        QSignalSpy opened(windows.get(), &WindowRegistry::opened);
        QPushButton *signIn = buttonWithText(&prompt, u"Sign In\u2026"_s);
        QVERIFY(signIn);

        QTest::mouseClick(signIn, Qt::LeftButton);
        QWidget *window = windows->window(u"login"_s);
        QVERIFY(window);
        QVERIFY(QTest::qWaitForWindowActive(window));

        prompt.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&prompt));
        QTest::mouseClick(signIn, Qt::LeftButton);
        QTRY_COMPARE(QApplication::activeWindow(), window);
        QCOMPARE(windows->window(u"login"_s), window);
        QCOMPARE(opened.size(), 1);
        QCOMPARE(liveLoginViews(), 1);
    }

    void promptQuitAsksToQuit()
    {
        SignInPromptView prompt(live->store.get(), windows.get());
        prompt.show();
        QVERIFY(QTest::qWaitForWindowExposed(&prompt));
        QSignalSpy quit(&prompt, &SignInPromptView::quitRequested);
        QPushButton *button = buttonWithText(&prompt, u"Quit"_s);
        QVERIFY(button);
        QTest::mouseClick(button, Qt::LeftButton);
        QCOMPARE(quit.size(), 1);
        QVERIFY(!windows->window(u"login"_s));
    }
};

QTEST_MAIN(TestLoginView)
#include "tst_loginview.moc"
