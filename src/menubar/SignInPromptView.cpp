#include "menubar/SignInPromptView.h"

#include "menubar/WindowRegistry.h"
#include "uikit/SymbolLabel.h"
#include "uikit/Symbols.h"
#include "uikit/SystemStyle.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {} // namespace

// The prompt reads nothing from the store; it takes one so the panel can hand over what it has.
SignInPromptView::SignInPromptView(GlucoseStore *, WindowRegistry *windows, QWidget *parent)
    : QWidget(parent), m_windows(windows)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);

    m_title = new SymbolLabel(u"drop.fill"_s, style::TextStyle::headline, this);
    m_title->setText(u"Glinta"_s);
    layout->addWidget(m_title, 0, Qt::AlignLeft);

    m_explanation = style::plainLabel(
        u"Connect your LibreLinkUp account to see your glucose in the system tray."_s, this);
    m_explanation->setWordWrap(true);
    layout->addWidget(m_explanation);

    auto *row = new QHBoxLayout;
    auto *quit = new QPushButton(u"Quit"_s, this);
    quit->setAutoDefault(false);
    m_signIn = new QPushButton(u"Sign In\u2026"_s, this);
    m_signIn->setAutoDefault(false);
    row->addWidget(quit);
    row->addWidget(m_signIn);
    row->addStretch();
    layout->addLayout(row);

    m_notice =
        style::plainLabel(u"Glinta is not a medical device. Do not use it for treatment decisions."_s, this);
    m_notice->setWordWrap(true);
    layout->addWidget(m_notice);

    connect(quit, &QPushButton::clicked, this, &SignInPromptView::quitRequested);
    // Opening brings the window to the front, which is what activating the application comes to here.
    connect(m_signIn, &QPushButton::clicked, this, [this] {
        if (m_windows)
            m_windows->open(u"login"_s);
    });

    applyColors();
}

void SignInPromptView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        applyColors();
}

void SignInPromptView::applyColors()
{
    const QPalette &colors = palette();
    m_title->setColor(style::primaryText(colors));
    style::apply(m_explanation, style::TextStyle::caption, style::secondaryText(colors));
    style::apply(m_notice, style::TextStyle::caption2, style::tertiaryText(colors));

    style::makeProminent(m_signIn, colors);
}

} // namespace glinta
