#pragma once

#include "app/StatusNotifierItem.h"
#include "menubar/MenuBarLabel.h"

#include <QElapsedTimer>
#include <QFrame>
#include <QObject>
#include <QPointer>
#include <QSystemTrayIcon>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>

class QMenu;

namespace glinta {

class Preferences;

// The tray item and the panel it opens. Tray slots are square and the protocols carry no text title, so
// the icon is drawn from the label and the tooltip carries the whole title and what a screen reader says.
// Where a StatusNotifierItem host is there, Glinta's own item stands in for Qt's and shows the title as text
// beside a small icon, unless the user turned that off. Where no tray turns up, the panel becomes an ordinary
// window so the user is never left with nothing. The panel's content is made when it is first shown: a tray
// item that is only glanced at should not carry the chart and the rest of the panel all day.
class StatusItem : public QObject
{
    Q_OBJECT

public:
    struct Parts
    {
        std::function<QWidget *()> makePanel;
        // The menu a host's context click opens; none when empty.
        std::function<QMenu *()> makeMenu;
        // Tried before Qt's tray item when it sees a host; none when null.
        std::unique_ptr<StatusNotifierItem> ownItem;
    };

    StatusItem(MenuBarLabel *label, Preferences *preferences, Parts parts, QObject *parent = nullptr);
    ~StatusItem() override;

    // Shows the tray icon, or, when no tray appears within `trayWait`, the panel as a window.
    void show(std::chrono::milliseconds trayWait = std::chrono::seconds(10));

    // The panel under the icon (or at the pointer), brought forward; opens the window without a tray.
    void showPanel();
    void togglePanel();

    QSystemTrayIcon *trayIcon() { return &m_tray; }
    // The panel's window; its content is there once the panel has been shown.
    QWidget *panelWindow() const { return m_window; }
    bool usesFallbackWindow() const { return m_fallback; }
    // Shown as Glinta's own item, which can carry the title as text.
    bool usesOwnItem() const { return m_ownItem && m_ownItem->isRegistered(); }

    static QString toolTip(const MenuBarTitle &title);

Q_SIGNALS:
    // The fallback window was closed: with no tray, nothing else would be left of the program.
    void fallbackWindowClosed();
    // The icon, or without a tray the fallback window, has just appeared for the first time.
    void firstShown();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void updateIcon();
    StatusNotifierItem::Look ownItemLook(const MenuBarTitle &title, const QColor &ink);
    void ownItemRegistered(bool registered);
    void showMenu();
    void waitForTray();
    void showFallbackWindow();
    void placePopup();
    void announceShown();
    void makePanelContent();

    QPointer<MenuBarLabel> m_label;
    QPointer<Preferences> m_preferences;
    QSystemTrayIcon m_tray;
    std::function<QWidget *()> m_makePanel;
    std::function<QMenu *()> m_makeMenu;
    std::unique_ptr<StatusNotifierItem> m_ownItem;
    QList<QImage> m_drops;
    QColor m_dropInk;
    QFrame *m_window;
    QTimer m_trayPoll;
    QElapsedTimer m_waited;
    std::chrono::milliseconds m_trayWait{0};
    bool m_fallback = false;
    bool m_announcedShown = false;
    bool m_shownReading = false;
    // When the popup last closed: a click on the icon closes it first, and must not reopen it at once.
    QElapsedTimer m_sinceHidden;
};

} // namespace glinta
