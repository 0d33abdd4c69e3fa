#pragma once

#include "widget/GlucoseEntry.h"
#include "widget/GlucoseWidgetView.h"

#include <QPoint>
#include <QPointer>
#include <QWidget>

#include <optional>

class QAction;
class QMenu;
class QSettings;

namespace glinta {

// The widget on the desktop: a frameless, rounded window below the others that the user drags where it
// should live. Its right-click menu picks the size or closes it; place and size are remembered.
class DesktopWidgetWindow : public QWidget
{
    Q_OBJECT

public:
    static constexpr int cornerRadius = 22;
    static constexpr int padding = 16;

    static QSize sizeFor(WidgetFamily family);
    // "small", "medium", "large": the words of the settings file and the command line.
    static QString familyName(WidgetFamily family);
    static std::optional<WidgetFamily> familyFromName(QStringView name);

    // Place and size come from `settings` and go back to it; `family`, when given, replaces the size
    // remembered there.
    explicit DesktopWidgetWindow(QSettings *settings, std::optional<WidgetFamily> family = std::nullopt,
                                 QWidget *parent = nullptr);

    void setEntry(const GlucoseEntry &entry);
    WidgetFamily family() const { return m_family; }
    // Resizes, keeps the window on its screen and remembers the choice.
    void setFamily(WidgetFamily family);

    GlucoseWidgetView *view() const { return m_view; }
    QMenu *contextMenu() const { return m_menu; }

Q_SIGNALS:
    void closed();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    void applyFamily(WidgetFamily family);
    void savePosition();

    QPointer<QSettings> m_settings;
    GlucoseWidgetView *m_view;
    QMenu *m_menu;
    QList<QAction *> m_familyActions;
    WidgetFamily m_family = WidgetFamily::systemSmall;
    // Where in the window the left button went down, while dragging.
    std::optional<QPoint> m_grab;
    bool m_dragged = false;
};

} // namespace glinta
