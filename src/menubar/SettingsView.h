#pragma once

#include <QPointer>
#include <QWidget>

class QCheckBox;
class QFormLayout;
class QLabel;
class QMessageBox;
class QPushButton;

namespace glinta {

class GlucoseStore;
class LoginItem;
class WindowRegistry;

// The content of the "settings" window: starting at login, and the signed-in account with a way to
// sign out. The toggle always shows what the login item reports, never what was asked of it.
class SettingsView : public QWidget
{
    Q_OBJECT

public:
    SettingsView(GlucoseStore *store, LoginItem *loginItem, WindowRegistry *windows,
                 QWidget *parent = nullptr);

    bool launchesAtLogin() const { return m_launchesAtLogin; }
    // The sign-out question while it is open, else nullptr.
    QMessageBox *signOutAlert() const;

protected:
    void changeEvent(QEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    void readLaunchesAtLogin();
    void setLaunchesAtLogin(bool requested);
    void confirmSignOut();
    void updateAccount();
    void applyColors();

    QPointer<GlucoseStore> m_store;
    LoginItem *m_loginItem = nullptr;
    QPointer<WindowRegistry> m_windows;
    bool m_launchesAtLogin = false;

    QCheckBox *m_launchAtLogin = nullptr;
    QFormLayout *m_accountForm = nullptr;
    QLabel *m_account = nullptr;
    QPushButton *m_signOut = nullptr;
    QPointer<QMessageBox> m_signOutAlert;
};

} // namespace glinta
