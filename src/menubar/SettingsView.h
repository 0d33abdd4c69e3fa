#pragma once

#include <QList>
#include <QPointer>
#include <QWidget>

#include <functional>

#include <utility>

class QButtonGroup;
class QCheckBox;
class QGroupBox;
class QVBoxLayout;
class QFormLayout;
class QLabel;
class QLineEdit;
class QMessageBox;
class QPushButton;

namespace glinta {

enum class AlertKind;
class GlucoseStore;
class LoginItem;
class Preferences;
class WindowRegistry;

// The content of the "settings" window: starting at login, the reading as text in the top bar, whom to
// follow, the target range, which alerts go off, and the signed-in account with a way to sign out. The toggle
// always shows what the login item reports, never what was asked of it.
class SettingsView : public QWidget
{
    Q_OBJECT

public:
    // Without preferences the alert switches show their defaults and cannot be changed. The switch for the
    // reading as text shows only where the status item can carry text (`offersReadingAsText`).
    SettingsView(GlucoseStore *store, Preferences *preferences, LoginItem *loginItem, WindowRegistry *windows,
                 bool offersReadingAsText = false, QWidget *parent = nullptr);

    bool launchesAtLogin() const { return m_launchesAtLogin; }
    // The sign-out question while it is open, else nullptr.
    QMessageBox *signOutAlert() const;
    // The question before urgent low alerts go off while it is open, else nullptr.
    QMessageBox *urgentLowAlert() const;

protected:
    void changeEvent(QEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    void readLaunchesAtLogin();
    void setLaunchesAtLogin(bool requested);
    void confirmSignOut();
    void updateAccount();
    void updatePeople();
    void showTargetRange();
    void applyTargetRange();
    void updateAlerts();
    void setAlertEnabled(AlertKind kind, bool enabled);
    void confirmUrgentLowOff();
    // A window-modal question without an event loop of its own; `confirmed` runs on the accepting answer.
    // One at a time per `slot`: asking again brings the window forward.
    void askFirst(QPointer<QMessageBox> &slot, const QString &question, const QString &explanation,
                  const QString &accept, bool acceptByDefault, std::function<void()> confirmed);
    void applyColors();

    QPointer<GlucoseStore> m_store;
    QPointer<Preferences> m_preferences;
    LoginItem *m_loginItem = nullptr;
    QPointer<WindowRegistry> m_windows;
    bool m_launchesAtLogin = false;

    QCheckBox *m_launchAtLogin = nullptr;
    QCheckBox *m_readingAsText = nullptr;
    QLineEdit *m_targetLow = nullptr;
    QLineEdit *m_targetHigh = nullptr;
    QLabel *m_targetLowProblem = nullptr;
    QLabel *m_targetHighProblem = nullptr;
    QFormLayout *m_targetForm = nullptr;
    QList<QLabel *> m_unitLabels;
    QLabel *m_targetCaption = nullptr;
    QList<std::pair<AlertKind, QCheckBox *>> m_alertSwitches;
    QCheckBox *m_alertSound = nullptr;
    QLabel *m_alertCaption = nullptr;
    QGroupBox *m_following = nullptr;
    QVBoxLayout *m_followingLayout = nullptr;
    QButtonGroup *m_people = nullptr;
    QLabel *m_choiceMissing = nullptr;
    QFormLayout *m_accountForm = nullptr;
    QLabel *m_account = nullptr;
    QPushButton *m_signOut = nullptr;
    QPointer<QMessageBox> m_signOutAlert;
    QPointer<QMessageBox> m_urgentLowAlert;
};

} // namespace glinta
