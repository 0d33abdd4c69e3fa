#include "app/StatusItem.h"

#include "menubar/TrayIconEngine.h"
#include "menubar/WindowRegistry.h"
#include "store/Preferences.h"
#include "support/Logging.h"
#include "uikit/Symbols.h"

#include <QApplication>
#include <QCursor>
#include <QKeyEvent>
#include <QMenu>
#include <QScreen>
#include <QVBoxLayout>

#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace glinta {

namespace {

constexpr auto reopenGuard = 300ms;

// The tray's background is not ours to read. GNOME-family top bars are dark whatever the theme; elsewhere
// the panel follows the desktop's colour scheme, which the application palette reflects.
QColor trayInk()
{
    const QString desktop = qEnvironmentVariable("XDG_CURRENT_DESKTOP");
    for (const auto name : {"GNOME", "Unity", "Pantheon"}) {
        if (desktop.contains(QLatin1StringView(name), Qt::CaseInsensitive))
            return Qt::white;
    }
    return QGuiApplication::palette().color(QPalette::WindowText);
}

// Under the title: the alert that holds, then what a screen reader says.
QString toolTipDetail(const MenuBarTitle &title)
{
    return title.alert.isEmpty() ? title.accessibilityLabel : title.alert + u'\n' + title.accessibilityLabel;
}

} // namespace

StatusItem::StatusItem(MenuBarLabel *label, Preferences *preferences, Parts parts, QObject *parent)
    : QObject(parent), m_label(label), m_preferences(preferences), m_makePanel(std::move(parts.makePanel)),
      m_makeMenu(std::move(parts.makeMenu)), m_ownItem(std::move(parts.ownItem)),
      m_window(new QFrame(nullptr, Qt::Popup))
{
    m_window->setObjectName(u"panel"_s);
    m_window->setWindowTitle(u"Glinta"_s);
    m_window->setFrameShape(QFrame::StyledPanel);
    m_window->setAutoFillBackground(true);
    auto *layout = new QVBoxLayout(m_window);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    m_window->installEventFilter(this);

    connect(label, &MenuBarLabel::titleChanged, this, &StatusItem::updateIcon);
    connect(&m_tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
            togglePanel();
    });
    if (m_ownItem) {
        connect(m_ownItem.get(), &StatusNotifierItem::registeredChanged, this,
                &StatusItem::ownItemRegistered);
        connect(m_ownItem.get(), &StatusNotifierItem::activated, this, &StatusItem::togglePanel);
        connect(m_ownItem.get(), &StatusNotifierItem::menuRequested, this, &StatusItem::showMenu);
    }
    if (preferences) {
        connect(preferences, &Preferences::changed, this, [this](Preferences::Key key) {
            if (key == Preferences::Key::showReadingAsText)
                updateIcon();
        });
    }
    updateIcon();
}

StatusItem::~StatusItem()
{
    delete m_window;
}

QString StatusItem::toolTip(const MenuBarTitle &title)
{
    return title.showsSymbol ? toolTipDetail(title) : title.text + u'\n' + toolTipDetail(title);
}

void StatusItem::updateIcon()
{
    if (!m_label)
        return;
    const MenuBarTitle title = m_label->title();
    const QColor ink = trayInk();
    m_tray.setIcon(QIcon(new TrayIconEngine(title, ink)));
    m_tray.setToolTip(toolTip(title));
    if (m_ownItem)
        m_ownItem->setLook(ownItemLook(title, ink));
    // Start-up benchmarks time exec to this line (QT_LOGGING_RULES="com.nordvik.glinta.App.debug=true");
    // the tray draws the icon when it next paints.
    if (!title.showsSymbol && !std::exchange(m_shownReading, true))
        qCDebug(lcApp, "First title shown");
}

StatusNotifierItem::Look StatusItem::ownItemLook(const MenuBarTitle &title, const QColor &ink)
{
    StatusNotifierItem::Look look;
    const bool asText = !title.showsSymbol && (!m_preferences || m_preferences->showReadingAsText());
    if (asText) {
        look.label = title.text;
        look.labelGuide = title.labelGuide;
    }
    // Beside the text, a small drop; the designed picture would say the value twice. The drop stays the
    // same from reading to reading, so it is drawn once per colour.
    const QIcon picture(new TrayIconEngine(title, ink));
    if (asText && (m_drops.isEmpty() || m_dropInk != ink)) {
        m_drops.clear();
        m_dropInk = ink;
        for (const QSize &size : picture.availableSizes())
            m_drops.append(symbolPixmap(u"drop.fill"_s, ink, size.width(), 1.0).toImage());
    }
    if (asText) {
        look.icons = m_drops;
    } else {
        for (const QSize &size : picture.availableSizes())
            look.icons.append(picture.pixmap(size).toImage());
    }
    look.toolTipTitle = title.showsSymbol ? u"Glinta"_s : title.text;
    look.toolTipText = toolTipDetail(title);
    look.needsAttention = !title.alert.isEmpty();
    return look;
}

void StatusItem::ownItemRegistered(bool registered)
{
    if (registered) {
        m_tray.hide();
        announceShown();
        return;
    }
    if (m_announcedShown) {
        qCInfo(lcApp, "The tray host went away; Glinta's status item comes back with it");
        return;
    }
    // Refused before it was ever shown: Qt's tray item instead. Later, as this runs inside its signal.
    qCInfo(lcApp, "Using Qt's tray item instead of Glinta's own");
    m_ownItem.release()->deleteLater();
    waitForTray();
}

void StatusItem::showMenu()
{
    if (!m_makeMenu)
        return;
    QMenu *menu = m_makeMenu();
    // Gone once it closes; an item chosen from it still runs, as deletion waits for the event loop.
    connect(menu, &QMenu::aboutToHide, menu, &QObject::deleteLater);
    menu->popup(QCursor::pos());
}

void StatusItem::show(std::chrono::milliseconds trayWait)
{
    m_trayWait = trayWait;
    m_waited.start();
    waitForTray();
}

void StatusItem::waitForTray()
{
    if (m_ownItem && m_ownItem->hostAvailable()) {
        // The answer comes as ownItemRegistered().
        m_ownItem->start();
        return;
    }
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        // Never started, so nothing of it is on the bus; keeping it would only draw looks no host reads.
        m_ownItem.reset();
        m_tray.show();
        announceShown();
        return;
    }
    if (std::chrono::milliseconds(m_waited.elapsed()) >= m_trayWait) {
        qCInfo(lcApp, "No system tray appeared within %s seconds; showing the panel as a window",
               qPrintable(QString::number(m_trayWait.count() / 1000.0, 'g', 4)));
        showFallbackWindow();
        return;
    }
    // Desktops start their tray late at login; look again shortly.
    QTimer::singleShot(500ms, this, &StatusItem::waitForTray);
}

void StatusItem::showFallbackWindow()
{
    m_ownItem.reset();
    m_fallback = true;
    m_window->setWindowFlags(Qt::Window);
    m_window->setFrameShape(QFrame::NoFrame);
    m_window->setWindowIcon(QApplication::windowIcon());
    showPanel();
    announceShown();
}

void StatusItem::announceShown()
{
    if (m_announcedShown)
        return;
    m_announcedShown = true;
    Q_EMIT firstShown();
}

void StatusItem::togglePanel()
{
    if (!m_fallback && m_window->isVisible()) {
        m_window->hide();
        return;
    }
    if (!m_fallback && m_sinceHidden.isValid() &&
        std::chrono::milliseconds(m_sinceHidden.elapsed()) < reopenGuard)
        return;
    showPanel();
}

void StatusItem::makePanelContent()
{
    if (!m_makePanel)
        return;
    m_window->layout()->addWidget(std::exchange(m_makePanel, nullptr)());
}

void StatusItem::showPanel()
{
    makePanelContent();
    m_window->layout()->activate();
    if (!m_fallback)
        placePopup();
    else if (!m_window->isVisible())
        centreOnScreen(m_window);
    activateWindow(m_window);
}

// Under the icon when the tray says where it is (XEmbed usually does, StatusNotifierItem never), else at
// the pointer, which has just clicked the icon; kept on the screen either way.
void StatusItem::placePopup()
{
    const QRect icon = m_tray.geometry();
    const QPoint anchor = icon.isValid() ? icon.center() : QCursor::pos();
    QScreen *screen = QGuiApplication::screenAt(anchor);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const QRect available = screen ? screen->availableGeometry() : QRect(anchor, m_window->size());
    const QSize size = m_window->size();
    const bool below = anchor.y() < available.center().y();
    const int gap = icon.isValid() ? icon.height() / 2 + 4 : 4;
    QPoint topLeft(anchor.x() - size.width() / 2,
                   below ? anchor.y() + gap : anchor.y() - gap - size.height());
    topLeft.setX(std::clamp(topLeft.x(), available.left(),
                            std::max(available.left(), available.right() - size.width() + 1)));
    topLeft.setY(std::clamp(topLeft.y(), available.top(),
                            std::max(available.top(), available.bottom() - size.height() + 1)));
    m_window->move(topLeft);
}

bool StatusItem::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_window) {
        switch (event->type()) {
        case QEvent::ApplicationPaletteChange: // every widget hears of it, the panel's window too
            updateIcon();
            break;
        case QEvent::Hide:
            m_sinceHidden.start();
            break;
        case QEvent::Close:
            if (m_fallback)
                Q_EMIT fallbackWindowClosed();
            break;
        case QEvent::KeyPress:
            if (!m_fallback && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape) {
                m_window->hide();
                return true;
            }
            break;
        default:
            break;
        }
    }
    return QObject::eventFilter(watched, event);
}

} // namespace glinta
