#include "SettingsView.h"

#include "Error.h"
#include "GlucoseStore.h"
#include "Logging.h"
#include "LoginItem.h"
#include "SystemStyle.h"
#include "WindowRegistry.h"

#include <QCheckBox>
#include <QEvent>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

const QString launchAtLoginText = u"Launch Glinta at login"_s;
const QString signOutText = u"Sign Out\u2026"_s;

} // namespace

SettingsView::SettingsView(GlucoseStore *store, LoginItem *loginItem, WindowRegistry *windows,
                           QWidget *parent)
    : QWidget(parent), m_store(store), m_loginItem(loginItem), m_windows(windows)
{
    setFixedWidth(420);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 20);
    layout->setSpacing(16);

    auto *general = new QGroupBox(u"General"_s, this);
    auto *generalLayout = new QVBoxLayout(general);
    m_launchAtLogin = new QCheckBox(launchAtLoginText, general);
    m_launchAtLogin->setAccessibleName(launchAtLoginText);
    m_launchAtLogin->setEnabled(m_loginItem != nullptr);
    generalLayout->addWidget(m_launchAtLogin);
    layout->addWidget(general);

    auto *account = new QGroupBox(u"Account"_s, this);
    m_accountForm = new QFormLayout(account);
    m_accountForm->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_account = style::plainLabel(QString(), account);
    m_account->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_account->setTextInteractionFlags(Qt::TextSelectableByMouse);
    // A long address is cut off rather than widening the window; the tooltip still has all of it.
    m_account->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_accountForm->addRow(u"Signed in as"_s, m_account);
    m_signOut = new QPushButton(signOutText, account);
    m_signOut->setAccessibleName(signOutText);
    m_signOut->setAutoDefault(false);
    m_signOut->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    m_accountForm->addRow(m_signOut);
    layout->addWidget(account);

    setTabOrder(m_launchAtLogin, m_signOut);

    // clicked, not toggled: the check state set from the re-read status must not start another change.
    connect(m_launchAtLogin, &QCheckBox::clicked, this, &SettingsView::setLaunchesAtLogin);
    connect(m_signOut, &QPushButton::clicked, this, &SettingsView::confirmSignOut);
    if (m_store)
        connect(m_store, &GlucoseStore::savedEmailChanged, this, &SettingsView::updateAccount);

    readLaunchesAtLogin();
    updateAccount();
}

QMessageBox *SettingsView::signOutAlert() const
{
    return m_signOutAlert.data();
}

void SettingsView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        applyColors();
}

void SettingsView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // The desktop's own startup settings may have changed the entry while the window was away.
    readLaunchesAtLogin();
}

void SettingsView::readLaunchesAtLogin()
{
    m_launchesAtLogin = m_loginItem && m_loginItem->status() == LoginItem::Status::enabled;
    const QSignalBlocker blocker(m_launchAtLogin);
    m_launchAtLogin->setChecked(m_launchesAtLogin);
}

void SettingsView::setLaunchesAtLogin(bool requested)
{
    if (m_loginItem) {
        try {
            if (requested)
                m_loginItem->registerItem();
            else
                m_loginItem->unregisterItem();
        } catch (const Error &error) {
            // Nothing to tell the user beyond the toggle springing back.
            qCCritical(lcSettingsView, "Launch at Login change failed: %s",
                       qUtf8Printable(error.description()));
        }
    }
    readLaunchesAtLogin();
}

void SettingsView::confirmSignOut()
{
    if (m_signOutAlert) {
        glinta::activateWindow(window());
        return;
    }

    auto *alert = new QMessageBox(this);
    alert->setIcon(QMessageBox::Warning);
    alert->setText(u"Sign out of LibreLinkUp?"_s);
    alert->setInformativeText(u"Glinta will forget the saved password and stop showing readings. You can "
                              u"sign in again at any time."_s);
    QPushButton *signOut = alert->addButton(u"Sign Out"_s, QMessageBox::AcceptRole);
    QPushButton *cancel = alert->addButton(u"Cancel"_s, QMessageBox::RejectRole);
    alert->setDefaultButton(signOut);
    alert->setEscapeButton(cancel);
    m_signOutAlert = alert;

    connect(alert, &QMessageBox::finished, this, [this, alert, signOut] {
        const bool confirmed = alert->clickedButton() == signOut;
        alert->deleteLater();
        if (!confirmed)
            return;
        if (m_store)
            m_store->signOut();
        if (m_windows)
            m_windows->dismiss(u"settings"_s);
    });

    glinta::activateWindow(window());
    // Window-modal and without an event loop of its own: the answer arrives through finished.
    alert->open();
}

void SettingsView::updateAccount()
{
    const std::optional<QString> email = m_store ? m_store->savedEmail() : std::nullopt;
    m_account->setText(email.value_or(u"Not signed in"_s));
    m_account->setToolTip(email.value_or(QString()));
    m_accountForm->setRowVisible(m_signOut, email.has_value());
    applyColors();
}

void SettingsView::applyColors()
{
    const QPalette &colors = palette();
    const bool signedIn = m_store && m_store->savedEmail();
    style::apply(m_account, style::TextStyle::body,
                 signedIn ? style::primaryText(colors) : style::secondaryText(colors));
}

} // namespace glinta
