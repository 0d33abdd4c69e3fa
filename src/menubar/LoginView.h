#pragma once

#include <QPointer>
#include <QWidget>

#include <qcoro/qcorotask.h>

class QLabel;
class QLineEdit;
class QPushButton;

namespace glinta {

class SymbolLabel;
class GlucoseStore;
class ProgressSpinner;
class WindowRegistry;

// The content of the "login" window. The fields start empty, except after a credential failure: then the
// saved e-mail is filled in and only the password is asked for. The window closes itself once the store
// has taken the account.
class LoginView : public QWidget
{
    Q_OBJECT

public:
    LoginView(GlucoseStore *store, WindowRegistry *windows, QWidget *parent = nullptr);

protected:
    void changeEvent(QEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    QCoro::Task<void> submit();
    void updateState();
    void applyColors();

    QPointer<GlucoseStore> m_store;
    QPointer<WindowRegistry> m_windows;

    SymbolLabel *m_title = nullptr;
    QLabel *m_explanation = nullptr;
    QLabel *m_link = nullptr;
    QLineEdit *m_email = nullptr;
    QLineEdit *m_password = nullptr;
    QLabel *m_message = nullptr;
    QPushButton *m_signIn = nullptr;
    ProgressSpinner *m_spinner = nullptr;
    QLabel *m_notice = nullptr;
    bool m_shown = false;
};

} // namespace glinta
