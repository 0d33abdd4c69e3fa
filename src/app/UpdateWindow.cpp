#include "app/UpdateWindow.h"

#include "uikit/ProgressSpinner.h"
#include "uikit/Symbols.h"
#include "uikit/SystemStyle.h"

#include <QCloseEvent>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QTextBrowser>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

constexpr int iconSize = 64;
constexpr int textWidth = 440;

QPushButton *makeButton(const QString &text, QWidget *parent)
{
    auto *button = new QPushButton(text, parent);
    // Return presses the focused button, as in any dialog.
    button->setAutoDefault(true);
    return button;
}

} // namespace

UpdateWindow::UpdateWindow(QWidget *parent) : QWidget(parent, Qt::Window)
{
    setObjectName(u"software-update"_s);
    setWindowTitle(tr("Software Update"));
    setWindowIcon(applicationIcon());

    auto *root = new QHBoxLayout(this);
    root->setContentsMargins(20, 20, 20, 16);
    root->setSpacing(16);
    root->setSizeConstraint(QLayout::SetFixedSize);

    auto *icon = new QLabel(this);
    icon->setPixmap(applicationIcon().pixmap(iconSize));
    icon->setFixedSize(iconSize, iconSize);
    root->addWidget(icon, 0, Qt::AlignTop);

    auto *column = new QWidget(this);
    // A fixed width lets the wrapped lines settle the window's height.
    column->setFixedWidth(textWidth);
    root->addWidget(column);
    auto *content = new QVBoxLayout(column);
    content->setContentsMargins(0, 0, 0, 0);
    content->setSpacing(8);

    auto *headlineRow = new QHBoxLayout;
    headlineRow->setSpacing(8);
    m_headline = style::plainLabel({}, column);
    m_headline->setObjectName(u"headline"_s);
    m_headline->setFont(style::font(style::TextStyle::headline));
    m_headline->setWordWrap(true);
    m_spinner = new ProgressSpinner(16, column);
    headlineRow->addWidget(m_spinner, 0, Qt::AlignVCenter);
    headlineRow->addWidget(m_headline, 1);
    content->addLayout(headlineRow);

    // Plain text: versions and error messages come from the feed and the network, not from us.
    m_message = style::plainLabel({}, column);
    m_message->setObjectName(u"message"_s);
    m_message->setFont(style::font(style::TextStyle::body));
    m_message->setWordWrap(true);
    m_message->setTextInteractionFlags(Qt::TextSelectableByMouse);
    content->addWidget(m_message);

    m_notesCaption = style::plainLabel(tr("Release Notes:"), column);
    m_notesCaption->setObjectName(u"releaseNotesCaption"_s);
    QFont captionFont = style::font(style::TextStyle::body);
    captionFont.setWeight(QFont::DemiBold);
    m_notesCaption->setFont(captionFont);
    content->addSpacing(4);
    content->addWidget(m_notesCaption);

    m_notes = new QTextBrowser(column);
    m_notes->setObjectName(u"releaseNotes"_s);
    m_notes->setAccessibleName(tr("Release Notes:"));
    m_notes->setFixedHeight(220);
    // Links go to the browser; the notes themselves never navigate, so a feed cannot point this view
    // at a local file.
    m_notes->setOpenLinks(false);
    connect(m_notes, &QTextBrowser::anchorClicked, this, &UpdateWindow::openLink);
    content->addWidget(m_notes);

    m_notesLink = new QLabel(column);
    m_notesLink->setObjectName(u"releaseNotesLink"_s);
    m_notesLink->setTextFormat(Qt::RichText);
    m_notesLink->setTextInteractionFlags(Qt::LinksAccessibleByMouse | Qt::LinksAccessibleByKeyboard);
    connect(m_notesLink, &QLabel::linkActivated, this, [this](const QString &link) { openLink(QUrl(link)); });
    content->addWidget(m_notesLink, 0, Qt::AlignLeft);

    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    m_skip = makeButton(tr("Skip This Version"), column);
    m_remindLater = makeButton(tr("Remind Me Later"), column);
    m_install = makeButton(tr("Install Update"), column);
    m_install->setDefault(true);
    m_cancel = makeButton(tr("Cancel"), column);
    m_ok = makeButton(tr("OK"), column);
    m_ok->setDefault(true);
    buttons->addWidget(m_skip);
    buttons->addStretch(1);
    for (QPushButton *button : {m_cancel, m_ok, m_remindLater, m_install})
        buttons->addWidget(button);
    content->addSpacing(8);
    content->addLayout(buttons);

    connect(m_skip, &QPushButton::clicked, this, [this] { choose(UpdateChoice::skip); });
    connect(m_remindLater, &QPushButton::clicked, this, [this] { choose(UpdateChoice::remindLater); });
    connect(m_install, &QPushButton::clicked, this, [this] { choose(UpdateChoice::install); });
    connect(m_cancel, &QPushButton::clicked, this, &QWidget::close);
    connect(m_ok, &QPushButton::clicked, this, &QWidget::close);

    setMode(Mode::checking);
}

void UpdateWindow::showOffer(const AppcastItem &update, const QString &runningVersion)
{
    m_headline->setText(tr("A new version of Glinta is available!"));
    m_message->setText(tr("Glinta %1 is now available — you have %2. Would you like to download it now?")
                           .arg(update.displayVersionString, runningVersion));
    m_notesBase = update.releaseNotesLink;
    const bool hasNotes = !update.releaseNotes.trimmed().isEmpty();
    if (hasNotes)
        m_notes->setHtml(update.releaseNotes);
    else
        m_notes->clear();
    const bool hasLink = !hasNotes && update.releaseNotesLink.isValid();
    if (hasLink) {
        const QString address = update.releaseNotesLink.toString(QUrl::FullyEncoded).toHtmlEscaped();
        m_notesLink->setText(u"<a href=\""_s + address + u"\">"_s + address + u"</a>"_s);
    } else {
        m_notesLink->clear();
    }
    setMode(Mode::offer);
    m_notesCaption->setVisible(hasNotes || hasLink);
    m_notes->setVisible(hasNotes);
    m_notesLink->setVisible(hasLink);
}

void UpdateWindow::showChecking()
{
    m_headline->setText(tr("Checking for updates…"));
    m_message->clear();
    setMode(Mode::checking);
}

void UpdateWindow::showUpToDate(const QString &runningVersion)
{
    m_headline->setText(tr("You're up to date"));
    m_message->setText(tr("Glinta %1 is the newest version available.").arg(runningVersion));
    setMode(Mode::upToDate);
}

void UpdateWindow::showFailure(const QString &message)
{
    m_headline->setText(tr("Update check failed"));
    m_message->setText(message);
    setMode(Mode::failed);
}

void UpdateWindow::setMode(Mode mode)
{
    m_mode = mode;
    const bool offer = mode == Mode::offer;
    const bool checking = mode == Mode::checking;
    m_message->setVisible(!checking);
    m_spinner->setVisible(checking);
    m_notesCaption->setVisible(offer);
    m_notes->setVisible(offer);
    m_notesLink->setVisible(offer);
    for (QPushButton *button : {m_skip, m_remindLater, m_install})
        button->setVisible(offer);
    m_cancel->setVisible(checking);
    m_ok->setVisible(!offer && !checking);
    defaultButton()->setFocus();
}

QPushButton *UpdateWindow::defaultButton() const
{
    switch (m_mode) {
    case Mode::offer:
        return m_install;
    case Mode::checking:
        return m_cancel;
    case Mode::upToDate:
    case Mode::failed:
        return m_ok;
    }
    Q_UNREACHABLE();
    return m_ok;
}

void UpdateWindow::choose(UpdateChoice choice)
{
    Q_EMIT chosen(choice);
    close();
}

void UpdateWindow::openLink(const QUrl &link)
{
    const QUrl url = link.isRelative() && m_notesBase.isValid() ? m_notesBase.resolved(link) : link;
    // Only web pages: whatever else a feed's notes link to stays where it is.
    if (url.scheme() == u"https" || url.scheme() == u"http")
        QDesktopServices::openUrl(url);
}

void UpdateWindow::closeEvent(QCloseEvent *event)
{
    QWidget::closeEvent(event);
    if (event->isAccepted())
        Q_EMIT closed();
}

void UpdateWindow::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Escape:
        close();
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        // Not a QDialog, so the default button is pressed here.
        if (event->modifiers() == Qt::NoModifier || event->modifiers() == Qt::KeypadModifier) {
            defaultButton()->click();
            return;
        }
        break;
    default:
        break;
    }
    QWidget::keyPressEvent(event);
}

} // namespace glinta
