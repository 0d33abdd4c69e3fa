#include "menubar/LoginView.h"

#include "menubar/WindowRegistry.h"
#include "store/GlucoseStore.h"
#include "uikit/ProgressSpinner.h"
#include "uikit/SymbolLabel.h"
#include "uikit/Symbols.h"
#include "uikit/SystemStyle.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QShowEvent>
#include <QUrl>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

const QString signUpAddress = u"https://www.librelinkup.com/"_s;
const QString signInText = u"Sign In"_s;
const QString signUpText = u"Don't have an account? Set up LibreLinkUp\u2026"_s;

} // namespace

LoginView::LoginView(GlucoseStore *store, WindowRegistry *windows, QWidget *parent)
    : QWidget(parent), m_store(store), m_windows(windows)
{
    setFixedWidth(360);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(10);

    m_title = new SymbolLabel(u"drop.fill"_s, style::TextStyle::headline, this);
    m_title->setText(u"Glinta"_s);
    layout->addWidget(m_title, 0, Qt::AlignLeft);

    m_explanation =
        style::plainLabel(u"Sign in with your LibreLinkUp account. Your credentials are stored in your "
                          u"desktop keyring and sent only to Abbott's LibreView servers."_s,
                          this);
    m_explanation->setWordWrap(true);
    layout->addWidget(m_explanation);

    m_link = new QLabel(this);
    m_link->setTextFormat(Qt::RichText);
    m_link->setTextInteractionFlags(Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    m_link->setOpenExternalLinks(true);
    m_link->setFont(style::font(style::TextStyle::caption));
    m_link->setAccessibleName(signUpText);
    layout->addWidget(m_link, 0, Qt::AlignLeft);

    m_email = new QLineEdit(this);
    m_email->setPlaceholderText(u"Email"_s);
    m_email->setAccessibleName(u"Email"_s);
    m_email->setInputMethodHints(Qt::ImhNoAutoUppercase | Qt::ImhNoPredictiveText |
                                 Qt::ImhEmailCharactersOnly);
    layout->addWidget(m_email);

    m_password = new QLineEdit(this);
    m_password->setPlaceholderText(u"Password"_s);
    m_password->setAccessibleName(u"Password"_s);
    m_password->setEchoMode(QLineEdit::Password);
    m_password->setInputMethodHints(Qt::ImhHiddenText | Qt::ImhSensitiveData | Qt::ImhNoPredictiveText |
                                    Qt::ImhNoAutoUppercase);
    layout->addWidget(m_password);

    m_message = style::plainLabel(QString(), this);
    m_message->setWordWrap(true);
    layout->addWidget(m_message);

    auto *row = new QHBoxLayout;
    row->addStretch();
    m_signIn = new QPushButton(signInText, this);
    m_signIn->setAccessibleName(signInText);
    // Only the button signs in: Return in a field must not reach it.
    m_signIn->setAutoDefault(false);
    m_signIn->setDefault(false);
    // The spinner takes the label's place without the button changing size.
    m_signIn->setMinimumSize(m_signIn->sizeHint());
    auto *inside = new QHBoxLayout(m_signIn);
    inside->setContentsMargins(0, 0, 0, 0);
    m_spinner = new ProgressSpinner(14, m_signIn);
    inside->addWidget(m_spinner, 0, Qt::AlignCenter);
    row->addWidget(m_signIn);
    layout->addLayout(row);

    m_notice =
        style::plainLabel(u"Glinta is not a medical device. Do not use it for treatment decisions."_s, this);
    m_notice->setWordWrap(true);
    layout->addWidget(m_notice);

    // The store still knows the account it stopped on; a sign-out forgets it, and the fields stay empty.
    if (m_store && m_store->credentialFailure())
        m_email->setText(m_store->savedEmail().value_or(QString()));

    setTabOrder(m_email, m_password);
    setTabOrder(m_password, m_signIn);
    setTabOrder(m_signIn, m_link);

    connect(m_email, &QLineEdit::textChanged, this, &LoginView::updateState);
    connect(m_password, &QLineEdit::textChanged, this, &LoginView::updateState);
    connect(m_signIn, &QPushButton::clicked, this, [this] { submit(); });
    if (m_store)
        connect(m_store, &GlucoseStore::statusChanged, this, &LoginView::updateState);

    applyColors();
    updateState();
}

void LoginView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        applyColors();
}

void LoginView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // Only once inside its window can the field be made the one that takes focus on activation.
    if (!m_shown)
        (m_email->text().isEmpty() ? m_email : m_password)->setFocus();
    m_shown = true;
}

QCoro::Task<void> LoginView::submit()
{
    const QPointer<LoginView> self(this);
    if (!m_store)
        co_return;
    co_await m_store->signIn(m_email->text(), m_password->text());
    // The window may have been closed while signing in; then there is nothing left to close.
    if (!self || !m_store || m_store->status().kind == GlucoseStore::Status::Kind::failed)
        co_return;
    if (m_windows)
        m_windows->dismiss(u"login"_s);
}

void LoginView::updateState()
{
    const GlucoseStore::Status status = m_store ? m_store->status() : GlucoseStore::Status::loggedOut();
    const bool connecting = status.kind == GlucoseStore::Status::Kind::connecting;
    const bool failed = status.kind == GlucoseStore::Status::Kind::failed;

    m_message->setText(failed ? status.message : QString());
    m_message->setVisible(failed);
    m_signIn->setText(connecting ? QString() : signInText);
    m_spinner->setVisible(connecting);
    // Blanks count: the texts go to the store exactly as typed.
    m_signIn->setEnabled(!connecting && !m_email->text().isEmpty() && !m_password->text().isEmpty());
}

void LoginView::applyColors()
{
    const QPalette &colors = palette();
    m_title->setColor(style::primaryText(colors));
    style::apply(m_explanation, style::TextStyle::caption, style::secondaryText(colors));
    // A link's colour is fixed when its markup is parsed, so the markup is rebuilt for each palette.
    m_link->setText(u"<a href=\"%1\" style=\"color: %2\">%3</a>"_s.arg(
        signUpAddress, colors.color(QPalette::Link).name(), signUpText.toHtmlEscaped()));
    style::apply(m_message, style::TextStyle::caption, style::red(colors));
    style::apply(m_notice, style::TextStyle::caption2, style::tertiaryText(colors));

    style::makeProminent(m_signIn, colors);

    // The spinner only turns while the button is disabled, so it takes the disabled label's colour.
    QPalette spinner = m_spinner->palette();
    spinner.setColor(QPalette::WindowText,
                     m_signIn->palette().color(QPalette::Disabled, QPalette::ButtonText));
    m_spinner->setPalette(spinner);
}

} // namespace glinta
