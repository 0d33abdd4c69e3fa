#pragma once

#include <QPointer>
#include <QWidget>

class QLabel;
class QPushButton;

namespace glinta {

class SymbolLabel;
class GlucoseStore;
class WindowRegistry;

// Shown in the panel while nobody is signed in: says what to do and opens the "login" window.
class SignInPromptView : public QWidget
{
    Q_OBJECT

public:
    SignInPromptView(GlucoseStore *store, WindowRegistry *windows, QWidget *parent = nullptr);

Q_SIGNALS:
    // "Quit" was pressed; the application ends without asking.
    void quitRequested();

protected:
    void changeEvent(QEvent *event) override;

private:
    void applyColors();

    QPointer<WindowRegistry> m_windows;

    SymbolLabel *m_title = nullptr;
    QLabel *m_explanation = nullptr;
    QPushButton *m_signIn = nullptr;
    QLabel *m_notice = nullptr;
};

} // namespace glinta
