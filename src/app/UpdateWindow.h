#pragma once

#include "update/UserDriver.h"

#include <QWidget>

class QLabel;
class QPushButton;
class QTextBrowser;

namespace glinta {

class ProgressSpinner;

// The "Software Update" window: an offered update with its release notes and the three choices, or the
// state of a check the user started (checking, up to date, failed). One window shows one of these at a
// time; it only presents, the driver decides what and when.
class UpdateWindow : public QWidget
{
    Q_OBJECT

public:
    enum class Mode
    {
        offer,
        checking,
        upToDate,
        failed,
    };
    Q_ENUM(Mode)

    explicit UpdateWindow(QWidget *parent = nullptr);

    Mode mode() const { return m_mode; }

    void showOffer(const AppcastItem &update, const QString &runningVersion);
    void showChecking();
    void showUpToDate(const QString &runningVersion);
    void showFailure(const QString &message);

Q_SIGNALS:
    // One of the offer's buttons; the window closes right after.
    void chosen(glinta::UpdateChoice choice);
    // Closed by any means: a button, the title bar, Escape.
    void closed();

protected:
    void closeEvent(QCloseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    void setMode(Mode mode);
    void choose(UpdateChoice choice);
    void openLink(const QUrl &url);
    QPushButton *defaultButton() const;

    Mode m_mode = Mode::checking;
    QUrl m_notesBase;
    QLabel *m_headline;
    QLabel *m_message;
    ProgressSpinner *m_spinner;
    QLabel *m_notesCaption;
    QTextBrowser *m_notes;
    QLabel *m_notesLink;
    QPushButton *m_skip;
    QPushButton *m_remindLater;
    QPushButton *m_install;
    QPushButton *m_cancel;
    QPushButton *m_ok;
};

} // namespace glinta
