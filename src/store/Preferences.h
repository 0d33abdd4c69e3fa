#pragma once

#include "domain/GlucoseUnit.h"
#include "domain/TargetRange.h"
#include "store/AlertEngine.h"

#include <QDateTime>
#include <QObject>
#include <QSettings>
#include <QString>

#include <memory>
#include <optional>

namespace glinta {

struct BuildInfo;
class WidgetReloader;

// The few values that survive a restart outside the keyring and the snapshot: one typed accessor per
// key, and changed() for in-process observers, emitted only when a value really changes.
class Preferences : public QObject
{
    Q_OBJECT

public:
    enum class Key
    {
        glucoseUnit,
        libreLinkUpEmail,
        lastLaunchedBuild,
        availableUpdateVersion,
        renderImages,
        skippedVersion,
        lastUpdateCheckTime,
        serviceAppVersion,
        alertState,
        targetLowMgPerDl,
        targetHighMgPerDl,
        enabledAlerts,
        alertSound,
        showReadingAsText,
        followedPatientId,
    };
    Q_ENUM(Key)

    static QString keyName(Key key);

    // The user's settings file ($XDG_CONFIG_HOME/nordvik.com/glinta.conf on Linux).
    static std::unique_ptr<QSettings> userSettings();

    explicit Preferences(std::unique_ptr<QSettings> settings, QObject *parent = nullptr);
    ~Preferences() override;

    // Anything but exactly "mmol/L" reads as mg/dL.
    GlucoseUnit glucoseUnit() const;
    void setGlucoseUnit(GlucoseUnit unit);

    std::optional<QString> libreLinkUpEmail() const;
    void setLibreLinkUpEmail(const QString &email);
    void removeLibreLinkUpEmail();

    std::optional<QString> lastLaunchedBuild() const;

    std::optional<QString> availableUpdateVersion() const;
    void setAvailableUpdateVersion(const QString &version);
    void removeAvailableUpdateVersion();

    // Set from outside the program only.
    bool renderImages() const;

    // The build version the user chose to skip; scheduled update checks stay silent about it.
    std::optional<QString> skippedVersion() const;
    void setSkippedVersion(const QString &version);

    // When the updater last checked, to the second; ISO 8601 text in UTC, so a hand edit reads plainly.
    // Unreadable text reads as never.
    std::optional<QDateTime> lastUpdateCheckTime() const;
    void setLastUpdateCheckTime(const QDateTime &time);

    // The app version LibreLinkUp last asked for, sent instead of the built-in one while it is newer.
    std::optional<QString> serviceAppVersion() const;
    void setServiceAppVersion(const QString &version);
    void removeServiceAppVersion();

    // What alerts remember (when each last went off, snoozes), as JSON text.
    std::optional<QString> alertState() const;
    void setAlertState(const QString &state);

    // Both bounds in mg/dL; the default range when either is missing or unreadable, or the pair is not
    // one the user could choose.
    TargetRange targetRange() const;
    void setTargetRange(const TargetRange &range);

    // The user's range and alert switches.
    AlertSettings alertSettings() const;
    void setAlertEnabled(AlertKind kind, bool enabled);
    // The notification's sound hint; on unless turned off.
    bool alertSound() const;
    void setAlertSound(bool sound);

    // The title as text beside the status item's icon, where the tray host can show one; on unless
    // turned off.
    bool showReadingAsText() const;
    void setShowReadingAsText(bool show);

    // A digest of the service's id for the person the user chose to follow (the id itself is not kept);
    // none means the first one.
    std::optional<QString> followedPatientId() const;
    void setFollowedPatientId(const QString &patientId);
    void removeFollowedPatientId();

    // A launch of a build other than the last one (or the very first launch) wakes the widgets, which
    // may still show what the previous copy of the program wrote.
    void checkBuildChange(const BuildInfo &build, WidgetReloader &widgets);
    // Drops the waiting-update marker once the waiting version is the one running.
    void clearInstalledUpdateBadge(const BuildInfo &build);

Q_SIGNALS:
    void changed(glinta::Preferences::Key key);

private:
    std::optional<QString> text(Key key) const;
    void setText(Key key, const QString &value);
    // A switch that is on unless turned off: only "false" reads as off.
    bool isOn(Key key) const;
    void setOn(Key key, bool on);
    void remove(Key key);

    std::unique_ptr<QSettings> m_settings;
};

} // namespace glinta
