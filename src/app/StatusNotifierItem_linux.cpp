#include "app/StatusNotifierItem.h"

#include "support/Logging.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QtEndian>

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

const QString watcherService = u"org.kde.StatusNotifierWatcher"_s;
const QString watcherPath = u"/StatusNotifierWatcher"_s;
const QString itemPath = u"/StatusNotifierItem"_s;
// A watcher that takes longer than this is not going to show the item.
constexpr int registerTimeoutMs = 10000;

// One picture of the (iiay) list: ARGB32 pixels in network byte order.
struct IconPixmap
{
    int width = 0;
    int height = 0;
    QByteArray argb;
};
using IconPixmaps = QList<IconPixmap>;

// (s a(iiay) s s): icon name, icon, title, text.
struct ToolTip
{
    QString title;
    QString text;
};

QDBusArgument &operator<<(QDBusArgument &argument, const IconPixmap &pixmap)
{
    argument.beginStructure();
    argument << pixmap.width << pixmap.height << pixmap.argb;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, IconPixmap &pixmap)
{
    argument.beginStructure();
    argument >> pixmap.width >> pixmap.height >> pixmap.argb;
    argument.endStructure();
    return argument;
}

QDBusArgument &operator<<(QDBusArgument &argument, const ToolTip &toolTip)
{
    argument.beginStructure();
    argument << QString() << IconPixmaps() << toolTip.title << toolTip.text;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, ToolTip &toolTip)
{
    QString iconName;
    IconPixmaps icon;
    argument.beginStructure();
    argument >> iconName >> icon >> toolTip.title >> toolTip.text;
    argument.endStructure();
    return argument;
}

IconPixmap iconPixmap(const QImage &image)
{
    const QImage argb = image.convertToFormat(QImage::Format_ARGB32);
    IconPixmap pixmap{argb.width(), argb.height(),
                      QByteArray(argb.width() * argb.height() * 4, Qt::Uninitialized)};
    auto *out = reinterpret_cast<quint32 *>(pixmap.argb.data());
    for (int y = 0; y < argb.height(); ++y) {
        const auto *row = reinterpret_cast<const quint32 *>(argb.constScanLine(y));
        for (int x = 0; x < argb.width(); ++x)
            *out++ = qToBigEndian(row[x]);
    }
    return pixmap;
}

} // namespace
} // namespace glinta

Q_DECLARE_METATYPE(glinta::IconPixmap)
Q_DECLARE_METATYPE(glinta::ToolTip)

namespace glinta {

// The object the host reads, at /StatusNotifierItem under a name of the process's own.
class StatusNotifierItem::Exported : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category)
    Q_PROPERTY(QString Id READ id)
    Q_PROPERTY(QString Title READ title)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(int WindowId READ windowId)
    Q_PROPERTY(QString IconName READ noName)
    Q_PROPERTY(QList<glinta::IconPixmap> IconPixmap READ icon)
    Q_PROPERTY(QString OverlayIconName READ noName)
    Q_PROPERTY(QList<glinta::IconPixmap> OverlayIconPixmap READ noIcon)
    Q_PROPERTY(QString AttentionIconName READ noName)
    Q_PROPERTY(QList<glinta::IconPixmap> AttentionIconPixmap READ icon)
    Q_PROPERTY(QString AttentionMovieName READ noName)
    Q_PROPERTY(glinta::ToolTip ToolTip READ toolTip)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu)
    Q_PROPERTY(QDBusObjectPath Menu READ menu)
    Q_PROPERTY(QString XAyatanaLabel READ label)
    Q_PROPERTY(QString XAyatanaLabelGuide READ labelGuide)
    Q_PROPERTY(uint XAyatanaOrderingIndex READ orderingIndex)

public:
    Exported(StatusNotifierItem *item, const QString &busConnection)
        : m_item(item),
          m_bus(busConnection.isEmpty() ? QDBusConnection::sessionBus() : QDBusConnection(busConnection)),
          // One item per process and bus, so the pid alone keeps the name apart from other programs'.
          m_service(u"org.kde.StatusNotifierItem-%1-1"_s.arg(QCoreApplication::applicationPid()))
    {
        qDBusRegisterMetaType<IconPixmap>();
        qDBusRegisterMetaType<IconPixmaps>();
        qDBusRegisterMetaType<ToolTip>();
    }

    ~Exported() override
    {
        if (m_started) {
            m_bus.unregisterObject(itemPath);
            m_bus.unregisterService(m_service);
        }
    }

    bool hostAvailable() const
    {
        const QDBusConnectionInterface *bus = m_bus.isConnected() ? m_bus.interface() : nullptr;
        return bus && bus->isServiceRegistered(watcherService);
    }

    void start()
    {
        if (m_started)
            return;
        m_started = true;
        if (!m_bus.registerService(m_service) ||
            !m_bus.registerObject(itemPath, this,
                                  QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals |
                                      QDBusConnection::ExportAllProperties)) {
            qCWarning(lcApp, "Glinta's status item could not be put on the session bus: %s",
                      qPrintable(m_bus.lastError().message()));
            Q_EMIT m_item->registeredChanged(false);
            return;
        }
        auto *watcher =
            new QDBusServiceWatcher(watcherService, m_bus, QDBusServiceWatcher::WatchForOwnerChange, this);
        connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
                [this](const QString &, const QString &, const QString &owner) {
                    // A new owner is a restarted shell, which knows nothing of the item yet.
                    setRegistered(false);
                    if (!owner.isEmpty())
                        registerWithWatcher();
                });
        if (hostAvailable())
            registerWithWatcher();
    }

    bool isRegistered() const { return m_registered; }

    void announce(const Look &before, const Look &after)
    {
        if (before.label != after.label || before.labelGuide != after.labelGuide)
            Q_EMIT XAyatanaNewLabel(after.label, after.labelGuide);
        if (before.icons != after.icons) {
            Q_EMIT NewIcon();
            Q_EMIT NewAttentionIcon();
        }
        if (before.toolTipTitle != after.toolTipTitle || before.toolTipText != after.toolTipText)
            Q_EMIT NewToolTip();
        if (before.needsAttention != after.needsAttention)
            Q_EMIT NewStatus(status());
    }

    QString category() const { return u"ApplicationStatus"_s; }
    QString id() const { return u"glinta"_s; }
    QString title() const { return u"Glinta"_s; }
    QString status() const { return m_item->m_look.needsAttention ? u"NeedsAttention"_s : u"Active"_s; }
    int windowId() const { return 0; }
    QString noName() const { return {}; }
    IconPixmaps icon() const
    {
        IconPixmaps pixmaps;
        for (const QImage &image : m_item->m_look.icons)
            pixmaps.append(iconPixmap(image));
        return pixmaps;
    }
    IconPixmaps noIcon() const { return {}; }
    ToolTip toolTip() const { return {m_item->m_look.toolTipTitle, m_item->m_look.toolTipText}; }
    bool itemIsMenu() const { return false; }
    // No exported menu, said the way hosts recognise: GNOME's AppIndicator shows no item whose Menu is
    // missing. The context menu comes from ContextMenu instead.
    QDBusObjectPath menu() const { return QDBusObjectPath(u"/NO_DBUSMENU"_s); }
    QString label() const { return m_item->m_look.label; }
    QString labelGuide() const { return m_item->m_look.labelGuide; }
    uint orderingIndex() const { return 0; }

public Q_SLOTS:
    void Activate(int, int) { Q_EMIT m_item->activated(); }
    void SecondaryActivate(int, int) { Q_EMIT m_item->menuRequested(); }
    void ContextMenu(int, int) { Q_EMIT m_item->menuRequested(); }
    void Scroll(int, const QString &) {}

Q_SIGNALS:
    void NewTitle();
    void NewIcon();
    void NewAttentionIcon();
    void NewOverlayIcon();
    void NewToolTip();
    void NewStatus(const QString &status);
    void XAyatanaNewLabel(const QString &label, const QString &guide);

private:
    void registerWithWatcher()
    {
        QDBusMessage call = QDBusMessage::createMethodCall(watcherService, watcherPath, watcherService,
                                                           u"RegisterStatusNotifierItem"_s);
        call << m_service;
        auto *pending = new QDBusPendingCallWatcher(m_bus.asyncCall(call, registerTimeoutMs), this);
        connect(pending, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *answer) {
            answer->deleteLater();
            const QDBusPendingReply<> reply = *answer;
            if (reply.isError()) {
                qCWarning(lcApp, "The tray host did not take Glinta's status item: %s",
                          qPrintable(reply.error().message()));
                // Said even when it was not registered: a refusal is news to whoever waits for it.
                m_registered = false;
                Q_EMIT m_item->registeredChanged(false);
                return;
            }
            qCInfo(lcApp, "Glinta's status item is registered with the tray host");
            setRegistered(true);
        });
    }

    void setRegistered(bool registered)
    {
        if (m_registered == registered)
            return;
        m_registered = registered;
        Q_EMIT m_item->registeredChanged(registered);
    }

    StatusNotifierItem *m_item;
    QDBusConnection m_bus;
    QString m_service;
    bool m_started = false;
    bool m_registered = false;
};

StatusNotifierItem::StatusNotifierItem(const QString &busConnection, QObject *parent)
    : QObject(parent), m_exported(std::make_unique<Exported>(this, busConnection))
{}

StatusNotifierItem::~StatusNotifierItem() = default;

bool StatusNotifierItem::hostAvailable() const
{
    return m_exported->hostAvailable();
}

void StatusNotifierItem::start()
{
    m_exported->start();
}

bool StatusNotifierItem::isRegistered() const
{
    return m_exported->isRegistered();
}

void StatusNotifierItem::setLook(const Look &look)
{
    if (look == m_look)
        return;
    const Look before = std::exchange(m_look, look);
    m_exported->announce(before, m_look);
}

} // namespace glinta

#include "StatusNotifierItem_linux.moc"
