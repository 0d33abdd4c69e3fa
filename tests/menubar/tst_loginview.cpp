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
using Kind = GlucoseStore::Status::Kind;

namespace {

// By what it reads or what a screen reader calls it.
template <typename T> T *named(const QWidget *root, const QString &name)
{
    for (T *candidate : root->findChildren<T *>()) {
        if (candidate->accessibleName() == name || candidate->text() == name)
            return candidate;
    }
    return nullptr;
}

int liveLoginViews()
{
    int count = 0;
    for (const QWidget *window : QApplication::topLevelWidgets())
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
    QPointer<QWidget> window;
    QLineEdit *email = nullptr;
    QLineEdit *password = nullptr;
    QPushButton *signIn = nullptr;

    bool openLogin()
    {
        window = windows->open(u"login"_s);
        if (!window || !QTest::qWaitForWindowExposed(window))
            return false;
        email = named<QLineEdit>(window, u"Email"_s);
        password = named<QLineEdit>(window, u"Password"_s);
        signIn = named<QPushButton>(window, u"Sign In"_s);
        return email && password && signIn;
    }

    bool openAndType(const QString &typedPassword)
    {
        if (!openLogin())
            return false;
        QTest::keyClicks(email, live->account().email);
        QTest::keyClicks(password, typedPassword);
        return true;
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

    // The e-mail field takes the focus, the button follows the texts, and Return in a field does not submit.
    void typing_data()
    {
        QTest::addColumn<QString>("typedEmail");
        QTest::addColumn<QString>("typedPassword");
        QTest::addColumn<bool>("enabled");
        QTest::newRow("no password") << u"a"_s << QString() << false;
        QTest::newRow("no email") << QString() << u"b"_s << false;
        QTest::newRow("one character each") << u"a"_s << u"b"_s << true;
        QTest::newRow("blanks count") << u" "_s << u" "_s << true;
    }

    void typing()
    {
        QFETCH(QString, typedEmail);
        QFETCH(QString, typedPassword);
        QVERIFY(openLogin());
        QVERIFY(QTest::qWaitForWindowActive(window));
        QTRY_COMPARE(QApplication::focusWidget(), email);
        QTest::keyClicks(email, typedEmail);
        QTest::keyClicks(password, typedPassword);
        QTEST(signIn->isEnabled(), "enabled");
        for (QLineEdit *field : {email, password}) {
            QTest::keyClick(field, Qt::Key_Return);
            QTest::keyClick(field, Qt::Key_Enter);
        }
        // Signing in turns the status to connecting at once.
        QCOMPARE(live->store->status().kind, Kind::loggedOut);
    }

    // A wrong password keeps the window and what was typed, with the message in red. The next try hides
    // the message while it runs, turns the button into a spinner without resizing it, and closes the window
    // on success; the next one starts empty.
    void signingIn()
    {
        QVERIFY(openAndType(u"wrong"_s));
        QTest::mouseClick(signIn, Qt::LeftButton);
        QTRY_COMPARE(live->store->status().kind, Kind::failed);
        QTest::qWait(20); // the view's own task ends after the status changes
        QVERIFY(window);
        const auto *message = named<QLabel>(window, u"LibreLinkUp rejected the email or password."_s);
        QVERIFY(message && message->isVisible());
        auto *spinner = signIn->findChild<ProgressSpinner *>();
        QVERIFY(signIn->isEnabled() && signIn->text() == u"Sign In"_s && !spinner->isVisible());
        QCOMPARE(email->text() + u'|' + password->text(), live->account().email + u"|wrong"_s);

        live->service.addFault({u"login"_s, Fault::Kind::delay, 0, 0, {}, {}, 300ms, 1, {}});
        password->clear();
        QTest::keyClicks(password, live->account().password);
        const QSize size = signIn->size();
        QTest::mouseClick(signIn, Qt::LeftButton);
        QCOMPARE(live->store->status().kind, Kind::connecting);
        QVERIFY(!message->isVisible() && spinner->isVisible());
        QVERIFY(signIn->text().isEmpty() && !signIn->isEnabled());
        QTest::qWait(20);
        QCOMPARE(signIn->size(), size);
        QTRY_VERIFY(!windows->window(u"login"_s));
        QCOMPARE(live->store->savedEmail(), std::optional(live->account().email));
        QVERIFY(openLogin());
        QVERIFY(email->text().isEmpty() && password->text().isEmpty());
        QCOMPARE(liveLoginViews(), 1);
    }

    // The sign-in goes on without the view, and a window opened meanwhile is left alone.
    void closedWhileSigningIn()
    {
        live->service.addFault({u"login"_s, Fault::Kind::delay, 0, 0, {}, {}, 200ms, 1, {}});
        QVERIFY(openAndType(live->account().password));
        QTest::mouseClick(signIn, Qt::LeftButton);
        windows->dismiss(u"login"_s);
        QTRY_VERIFY(!window);
        QVERIFY(openLogin());
        QTRY_COMPARE(live->store->savedEmail(), std::optional(live->account().email));
        QTest::qWait(20);
        QVERIFY(window);
    }

    void linkOpensSignUpSite()
    {
        UrlCatcher browser;
        QDesktopServices::setUrlHandler(u"https"_s, &browser, "open");
        QVERIFY(openLogin());
        QLabel *link = named<QLabel>(window, u"Don't have an account? Set up LibreLinkUp\u2026"_s);
        QVERIFY(link);
        QTest::mouseClick(link, Qt::LeftButton, {}, QPoint(4, link->height() / 2));
        QDesktopServices::unsetUrlHandler(u"https"_s);
        QCOMPARE(browser.opened, QList{QUrl(u"https://www.librelinkup.com/"_s)});
    }

    void promptQuitsOrOpensOneLoginWindow()
    {
        SignInPromptView prompt(live->store.get(), windows.get());
        prompt.show();
        QVERIFY(QTest::qWaitForWindowExposed(&prompt));
        QSignalSpy quit(&prompt, &SignInPromptView::quitRequested);
        QSignalSpy opened(windows.get(), &WindowRegistry::opened);
        QTest::mouseClick(named<QPushButton>(&prompt, u"Quit"_s), Qt::LeftButton);
        QCOMPARE(quit.size(), 1);
        QVERIFY(!windows->window(u"login"_s));

        QPushButton *signIn = named<QPushButton>(&prompt, u"Sign In\u2026"_s);
        QTest::mouseClick(signIn, Qt::LeftButton);
        QWidget *login = windows->window(u"login"_s);
        QVERIFY(login);
        QVERIFY(QTest::qWaitForWindowActive(login));

        // Again from the front: the same window comes forward.
        prompt.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&prompt));
        QTest::mouseClick(signIn, Qt::LeftButton);
        QTRY_COMPARE(QApplication::activeWindow(), login);
        QCOMPARE(opened.size(), 1);
        QCOMPARE(liveLoginViews(), 1);
    }
};

QTEST_MAIN(TestLoginView)
#include "tst_loginview.moc"