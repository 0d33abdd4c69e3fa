#include "app/DesktopNotifier.h"

#include "support/Logging.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QHash>

#include <optional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace glinta {

namespace {

const QString service = u"org.freedesktop.Notifications"_s;
const QString path = u"/org/freedesktop/Notifications"_s;
const QString interface = u"org.freedesktop.Notifications"_s;
// The name the icon and the desktop entry are installed under.
const QString applicationId = u"com.nordvik.glinta"_s;

// The "image-data" hint: width, height, row stride, alpha, bits per sample, channels, RGBA bytes.
struct ImageData
{
    QImage image;
};

QDBusArgument &operator<<(QDBusArgument &argument, const ImageData &data)
{
    const QImage &image = data.image;
    argument.beginStructure();
    argument << image.width() << image.height() << int(image.bytesPerLine()) << true << 8 << 4
             << QByteArray(reinterpret_cast<const char *>(image.constBits()), image.sizeInBytes());
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, ImageData &)
{
    // Only ever sent.
    return argument;
}

} // namespace
} // namespace glinta

Q_DECLARE_METATYPE(glinta::ImageData)

namespace glinta {

// org.freedesktop.Notifications on the session bus.
class DesktopNotifier::Server : public QObject
{
    Q_OBJECT

public:
    Server(DesktopNotifier *notifier, QImage icon)
        : m_notifier(notifier),
          m_icon(icon.isNull() ? QImage() : icon.convertToFormat(QImage::Format_RGBA8888))
    {
        qDBusRegisterMetaType<ImageData>();
        m_bus.connect(service, path, interface, u"ActionInvoked"_s, this,
                      SLOT(onActionInvoked(uint, QString)));
        m_bus.connect(service, path, interface, u"NotificationClosed"_s, this,
                      SLOT(onNotificationClosed(uint, uint)));
    }

    void show(AlertKind kind, const Notice &notice)
    {
        QVariantMap hints{{u"urgency"_s, QVariant::fromValue(uchar(notice.critical ? 2 : 1))},
                          {u"category"_s, u"device"_s},
                          {u"desktop-entry"_s, applicationId}};
        if (!m_icon.isNull())
            hints.insert(u"image-data"_s, QVariant::fromValue(ImageData{m_icon}));
        if (notice.sound)
            hints.insert(u"sound-name"_s, u"dialog-warning"_s);
        QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, u"Notify"_s);
        call << u"Glinta"_s << m_ids.value(kind, 0) << applicationId << notice.summary << notice.body
             << QStringList{u"snooze-30"_s, DesktopNotifier::tr("Snooze 30 min"), u"snooze-120"_s,
                            DesktopNotifier::tr("Snooze 2 h")}
             << hints << qint32(-1);

        auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this,
                [this, kind, notice](QDBusPendingCallWatcher *done) {
                    done->deleteLater();
                    const QDBusPendingReply<uint> reply = *done;
                    if (reply.isError()) {
                        qCCritical(lcAlerts, "Could not show a notification: %s",
                                   qUtf8Printable(reply.error().message()));
                        m_ids.remove(kind);
                        if (m_notifier->m_fallback)
                            m_notifier->m_fallback(notice);
                        return;
                    }
                    m_ids.insert(kind, reply.value());
                });
    }

    void close(AlertKind kind)
    {
        const uint id = m_ids.take(kind);
        if (id == 0)
            return;
        m_bus.asyncCall(QDBusMessage::createMethodCall(service, path, interface, u"CloseNotification"_s)
                        << id);
    }

private Q_SLOTS:
    // QDBusConnection connects by slot name only.
    void onActionInvoked(uint id, const QString &action)
    {
        const std::optional<AlertKind> kind = kindOf(id);
        if (!kind)
            return;
        if (action == u"snooze-30")
            Q_EMIT m_notifier->snoozeRequested(*kind, 30min);
        else if (action == u"snooze-120")
            Q_EMIT m_notifier->snoozeRequested(*kind, 120min);
    }

    void onNotificationClosed(uint id, uint)
    {
        // A closed one is not replaced but shown anew.
        if (const std::optional<AlertKind> kind = kindOf(id))
            m_ids.remove(*kind);
    }

private:
    std::optional<AlertKind> kindOf(uint id) const
    {
        // Signals name every client's notifications; only ours are known here.
        for (auto it = m_ids.cbegin(); it != m_ids.cend(); ++it) {
            if (id != 0 && it.value() == id)
                return it.key();
        }
        return std::nullopt;
    }

    DesktopNotifier *m_notifier;
    QDBusConnection m_bus = QDBusConnection::sessionBus();
    QImage m_icon;
    QHash<AlertKind, uint> m_ids;
};

DesktopNotifier::DesktopNotifier(QImage icon, Fallback fallback, QObject *parent)
    : QObject(parent), m_fallback(std::move(fallback)),
      m_server(std::make_unique<Server>(this, std::move(icon)))
{}

DesktopNotifier::~DesktopNotifier() = default;

void DesktopNotifier::show(AlertKind kind, const Notice &notice)
{
    m_server->show(kind, notice);
}

void DesktopNotifier::close(AlertKind kind)
{
    m_server->close(kind);
}

} // namespace glinta

#include "DesktopNotifier_linux.moc"
