#pragma once

#include <QImage>
#include <QList>
#include <QObject>
#include <QString>

#include <memory>

namespace glinta {

// Glinta's own StatusNotifierItem, for tray hosts that show a text label beside an item's icon (GNOME's
// AppIndicator extension, Ubuntu, other hosts that read "XAyatanaLabel"). Qt's tray item carries only a
// picture and a tooltip. It registers with the host's watcher whenever one is on the bus, so a restarted
// shell gets it back. A side without such a bus has no host: hostAvailable() stays false.
class StatusNotifierItem : public QObject
{
    Q_OBJECT

public:
    struct Look
    {
        // Empty for an icon alone.
        QString label;
        QString labelGuide;
        // One picture per size offered; hosts pick the nearest.
        QList<QImage> icons;
        QString toolTipTitle;
        QString toolTipText;
        bool needsAttention = false;

        friend bool operator==(const Look &, const Look &) = default;
    };

    // `busConnection` names a connection made with QDBusConnection::connectToBus; empty for the session bus.
    explicit StatusNotifierItem(const QString &busConnection = {}, QObject *parent = nullptr);
    ~StatusNotifierItem() override;

    // A watcher is on the bus now.
    bool hostAvailable() const;
    // Registers now if a watcher is there, and again each time one appears.
    void start();
    bool isRegistered() const;

    Look look() const { return m_look; }
    void setLook(const Look &look);

Q_SIGNALS:
    // false also when the watcher refused the item or went away.
    void registeredChanged(bool registered);
    void activated();
    void menuRequested();

private:
    class Exported;

    Look m_look;
    std::unique_ptr<Exported> m_exported;
};

} // namespace glinta
