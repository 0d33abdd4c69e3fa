#include "widget/DesktopWidgetWindow.h"

#include <QAction>
#include <QActionGroup>
#include <QCloseEvent>
#include <QContextMenuEvent>
#include <QGuiApplication>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QSettings>
#include <QVBoxLayout>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

const QString familyKey = u"widget/family"_s;
const QString positionKey = u"widget/position"_s;

constexpr std::array families{WidgetFamily::systemSmall, WidgetFamily::systemMedium,
                              WidgetFamily::systemLarge};

// Barely see-through, where the window system blends windows at all.
constexpr qreal backgroundOpacity = 0.94;

// The platforms that give a window a shape and an opacity; the others (offscreen, Wayland) warn on each
// attempt.
bool platformShapesWindows()
{
    const QString platform = QGuiApplication::platformName();
    return platform == u"xcb"_s || platform == u"windows"_s || platform == u"cocoa"_s;
}

QPainterPath roundedShape(const QRect &rect)
{
    QPainterPath path;
    path.addRoundedRect(QRectF(rect), DesktopWidgetWindow::cornerRadius, DesktopWidgetWindow::cornerRadius);
    return path;
}

// The screen that shows most of `rect`, else the primary one; then `rect` moved wholly onto it, so a place
// remembered on a monitor that has since gone does not leave the widget out of reach.
QPoint placedOnScreen(const QRect &rect)
{
    QScreen *best = nullptr;
    qint64 bestArea = 0;
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (QScreen *screen : screens) {
        const QRect overlap = screen->availableGeometry().intersected(rect);
        const qint64 area = qint64(overlap.width()) * overlap.height();
        if (area > bestArea) {
            best = screen;
            bestArea = area;
        }
    }
    if (!best)
        best = QGuiApplication::primaryScreen();
    if (!best)
        return rect.topLeft();
    const QRect area = best->availableGeometry();
    return {std::clamp(rect.x(), area.left(), std::max(area.left(), area.right() + 1 - rect.width())),
            std::clamp(rect.y(), area.top(), std::max(area.top(), area.bottom() + 1 - rect.height()))};
}

// First start: the top right corner of the primary screen, clear of the edge.
QPoint defaultPosition(const QSize &size)
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen)
        return {};
    constexpr int margin = 24;
    const QRect area = screen->availableGeometry();
    return {area.right() + 1 - margin - size.width(), area.top() + margin};
}

} // namespace

QSize DesktopWidgetWindow::sizeFor(WidgetFamily family)
{
    switch (family) {
    case WidgetFamily::systemSmall:
        return {170, 170};
    case WidgetFamily::systemMedium:
        return {364, 170};
    case WidgetFamily::systemLarge:
        return {364, 364};
    }
    Q_UNREACHABLE();
    return {};
}

QString DesktopWidgetWindow::familyName(WidgetFamily family)
{
    switch (family) {
    case WidgetFamily::systemSmall:
        return u"small"_s;
    case WidgetFamily::systemMedium:
        return u"medium"_s;
    case WidgetFamily::systemLarge:
        return u"large"_s;
    }
    Q_UNREACHABLE();
    return {};
}

std::optional<WidgetFamily> DesktopWidgetWindow::familyFromName(QStringView name)
{
    for (const WidgetFamily family : families) {
        if (familyName(family) == name)
            return family;
    }
    return std::nullopt;
}

DesktopWidgetWindow::DesktopWidgetWindow(QSettings *settings, std::optional<WidgetFamily> family,
                                         QWidget *parent)
    : QWidget(parent, Qt::FramelessWindowHint | Qt::WindowStaysOnBottomHint | Qt::Tool), m_settings(settings),
      m_view(new GlucoseWidgetView(GlucoseEntry{}, std::nullopt, this)), m_menu(new QMenu(this))
{
    setWindowTitle(u"Glinta"_s);
    if (platformShapesWindows())
        setWindowOpacity(backgroundOpacity);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(padding, padding, padding, padding);
    layout->addWidget(m_view);
    // The face only shows; a press anywhere on it grabs the window, and a right click opens the menu.
    m_view->setAttribute(Qt::WA_TransparentForMouseEvents);

    auto *group = new QActionGroup(this);
    group->setExclusive(true);
    const std::array titles{u"Small"_s, u"Medium"_s, u"Large"_s};
    for (std::size_t i = 0; i < families.size(); ++i) {
        QAction *action = m_menu->addAction(titles[i]);
        action->setCheckable(true);
        group->addAction(action);
        const WidgetFamily choice = families[i];
        connect(action, &QAction::triggered, this, [this, choice] { setFamily(choice); });
        m_familyActions.append(action);
    }
    m_menu->addSeparator();
    connect(m_menu->addAction(u"Close"_s), &QAction::triggered, this, &QWidget::close);

    const QString remembered = settings ? settings->value(familyKey).toString() : QString();
    applyFamily(family.value_or(familyFromName(remembered).value_or(WidgetFamily::systemSmall)));
    const QPoint wanted = settings && settings->contains(positionKey) ? settings->value(positionKey).toPoint()
                                                                      : defaultPosition(size());
    move(placedOnScreen(QRect(wanted, size())));
}

void DesktopWidgetWindow::setEntry(const GlucoseEntry &entry)
{
    m_view->setEntry(entry);
}

void DesktopWidgetWindow::setFamily(WidgetFamily family)
{
    applyFamily(family);
    move(placedOnScreen(QRect(pos(), size())));
    if (m_settings)
        m_settings->setValue(familyKey, familyName(family));
    savePosition();
}

void DesktopWidgetWindow::applyFamily(WidgetFamily family)
{
    m_family = family;
    m_view->setFamily(family);
    setFixedSize(sizeFor(family));
    for (std::size_t i = 0; i < families.size(); ++i)
        m_familyActions[qsizetype(i)]->setChecked(families[i] == family);
}

void DesktopWidgetWindow::savePosition()
{
    if (m_settings)
        m_settings->setValue(positionKey, pos());
}

void DesktopWidgetWindow::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(roundedShape(rect()), palette().color(QPalette::Window));
}

void DesktopWidgetWindow::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (!platformShapesWindows())
        return;
    // A shaped window has round corners with or without a compositor; a translucent background would
    // show black corners on an X server without one.
    setMask(QRegion(roundedShape(rect()).toFillPolygon().toPolygon()));
}

void DesktopWidgetWindow::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    m_grab = event->position().toPoint();
    m_dragged = false;
    event->accept();
}

void DesktopWidgetWindow::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_grab || !(event->buttons() & Qt::LeftButton)) {
        QWidget::mouseMoveEvent(event);
        return;
    }
    move(event->globalPosition().toPoint() - *m_grab);
    m_dragged = true;
    event->accept();
}

void DesktopWidgetWindow::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !m_grab) {
        QWidget::mouseReleaseEvent(event);
        return;
    }
    m_grab.reset();
    if (m_dragged)
        savePosition();
    event->accept();
}

void DesktopWidgetWindow::contextMenuEvent(QContextMenuEvent *event)
{
    m_menu->popup(event->globalPos());
    event->accept();
}

void DesktopWidgetWindow::closeEvent(QCloseEvent *event)
{
    QWidget::closeEvent(event);
    Q_EMIT closed();
}

} // namespace glinta
