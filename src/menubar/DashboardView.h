#pragma once

#include "domain/AlertKind.h"

#include <QDateTime>
#include <QTimer>
#include <QWidget>

#include <chrono>
#include <functional>

class QButtonGroup;
class QFrame;
class QLabel;
class QMenu;
class QPushButton;
class QToolButton;

namespace glinta {

class GlucoseStore;
class ProgressSpinner;
class StaticUnitPicker;
class SymbolLabel;
class Updater;
class WindowRegistry;

// The signed-in panel: reading, failure, chart, statistics and controls. It follows the store in place
// and takes its colours from its palette, so that picture export can render it light or dark.
class DashboardView : public QWidget
{
    Q_OBJECT

public:
    using WallClock = std::function<QDateTime()>;

    DashboardView(GlucoseStore *store, Updater *updater, bool rendersForImage, WindowRegistry *windows,
                  QWidget *parent = nullptr);

    // The time the staleness and the age are judged by; the system clock unless replaced.
    void setWallClock(WallClock clock);

    // The gear button's menu as it would open now. The caller owns it.
    QMenu *buildGearMenu();

Q_SIGNALS:
    void quitRequested();
    void snoozeRequested(glinta::AlertKind kind, std::chrono::minutes duration);

protected:
    void changeEvent(QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    QWidget *makeHeaderRow();
    QWidget *makeReadingRow();
    QWidget *makeWaitingRow();
    QWidget *makeAlertLine();
    QWidget *makeFailureLine();
    QWidget *makeStatistics();
    QWidget *makeControlsRow();
    QWidget *makeUnitPicker();

    void updateContents();
    void updateAge();
    void updateColors();
    void showGearMenu();
    void openWindow(const QString &identifier);

    GlucoseStore *m_store;
    Updater *m_updater;
    bool m_rendersForImage;
    WindowRegistry *m_windows;
    WallClock m_wallClock;
    QTimer m_ageTimer;

    SymbolLabel *m_connection = nullptr;
    SymbolLabel *m_stale = nullptr;

    QWidget *m_readingRow = nullptr;
    QLabel *m_value = nullptr;
    QLabel *m_trend = nullptr;
    QLabel *m_unit = nullptr;
    QLabel *m_age = nullptr;

    QWidget *m_waitingRow = nullptr;
    QLabel *m_waiting = nullptr;
    ProgressSpinner *m_spinner = nullptr;

    QWidget *m_alertLine = nullptr;
    SymbolLabel *m_alert = nullptr;
    QToolButton *m_snooze = nullptr;

    QWidget *m_failureLine = nullptr;
    SymbolLabel *m_failure = nullptr;
    QPushButton *m_signInAgain = nullptr;

    QLabel *m_statisticsCaption = nullptr;
    QList<QLabel *> m_statisticTitles;
    QLabel *m_average = nullptr;
    QLabel *m_inRange = nullptr;
    QLabel *m_readingCount = nullptr;

    QFrame *m_divider = nullptr;
    QButtonGroup *m_unitButtons = nullptr;
    StaticUnitPicker *m_staticPicker = nullptr;
    QToolButton *m_refresh = nullptr;
    QToolButton *m_gear = nullptr;
};

} // namespace glinta
