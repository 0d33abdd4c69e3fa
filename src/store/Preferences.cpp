#include "store/Preferences.h"

#include "snapshot/WidgetReloader.h"
#include "support/BuildInfo.h"
#include "support/Logging.h"

#include <QLocale>

using namespace Qt::StringLiterals;

namespace glinta {

QString Preferences::keyName(Key key)
{
    switch (key) {
    case Key::glucoseUnit:
        return u"glucoseUnit"_s;
    case Key::libreLinkUpEmail:
        return u"libreLinkUpEmail"_s;
    case Key::lastLaunchedBuild:
        return u"lastLaunchedBuild"_s;
    case Key::availableUpdateVersion:
        return u"availableUpdateVersion"_s;
    case Key::renderImages:
        return u"RenderImages"_s;
    // The names the update framework keeps in the application's defaults.
    case Key::skippedVersion:
        return u"SUSkippedVersion"_s;
    case Key::lastUpdateCheckTime:
        return u"SULastCheckTime"_s;
    case Key::serviceAppVersion:
        return u"serviceAppVersion"_s;
    case Key::alertState:
        return u"alertState"_s;
    case Key::targetLowMgPerDl:
        return u"targetLowMgPerDl"_s;
    case Key::targetHighMgPerDl:
        return u"targetHighMgPerDl"_s;
    case Key::enabledAlerts:
        return u"enabledAlerts"_s;
    case Key::alertSound:
        return u"alertSound"_s;
    case Key::showReadingAsText:
        return u"showReadingAsText"_s;
    case Key::followedPatientId:
        return u"followedPatientId"_s;
    }
    Q_UNREACHABLE();
    return {};
}

std::unique_ptr<QSettings> Preferences::userSettings()
{
    return std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope, u"nordvik.com"_s,
                                       u"glinta"_s);
}

Preferences::Preferences(std::unique_ptr<QSettings> settings, QObject *parent)
    : QObject(parent), m_settings(std::move(settings))
{}

Preferences::~Preferences() = default;

std::optional<QString> Preferences::text(Key key) const
{
    const QVariant value = m_settings->value(keyName(key));
    // A value someone wrote by hand as something other than text reads as absent.
    if (value.typeId() != QMetaType::QString)
        return std::nullopt;
    return value.toString();
}

void Preferences::setText(Key key, const QString &value)
{
    if (text(key) == value)
        return;
    m_settings->setValue(keyName(key), value);
    // Written through at once: a crash must not lose a sign-in or a unit change.
    m_settings->sync();
    Q_EMIT changed(key);
}

bool Preferences::isOn(Key key) const
{
    return text(key) != u"false";
}

void Preferences::setOn(Key key, bool on)
{
    setText(key, on ? u"true"_s : u"false"_s);
}

void Preferences::remove(Key key)
{
    if (!m_settings->contains(keyName(key)))
        return;
    m_settings->remove(keyName(key));
    m_settings->sync();
    Q_EMIT changed(key);
}

std::optional<QString> Preferences::serviceAppVersion() const
{
    return text(Key::serviceAppVersion);
}

void Preferences::setServiceAppVersion(const QString &version)
{
    setText(Key::serviceAppVersion, version);
}

void Preferences::removeServiceAppVersion()
{
    remove(Key::serviceAppVersion);
}

std::optional<QString> Preferences::alertState() const
{
    return text(Key::alertState);
}

void Preferences::setAlertState(const QString &state)
{
    setText(Key::alertState, state);
}

TargetRange Preferences::targetRange() const
{
    const auto number = [this](Key key) {
        bool ok = false;
        const double value = QLocale::c().toDouble(text(key).value_or(QString()), &ok);
        return ok ? std::optional(value) : std::nullopt;
    };
    const std::optional<double> low = number(Key::targetLowMgPerDl);
    const std::optional<double> high = number(Key::targetHighMgPerDl);
    if (!low || !high)
        return {};
    const TargetRange range{*low, *high};
    return range.problem() ? TargetRange() : range;
}

void Preferences::setTargetRange(const TargetRange &range)
{
    setText(Key::targetLowMgPerDl, QLocale::c().toString(range.lowMgPerDl, 'g', 17));
    setText(Key::targetHighMgPerDl, QLocale::c().toString(range.highMgPerDl, 'g', 17));
}

AlertSettings Preferences::alertSettings() const
{
    AlertSettings settings;
    settings.range = targetRange();
    settings.unit = glucoseUnit();
    // The kinds that are on, by name.
    if (const std::optional<QString> stored = text(Key::enabledAlerts)) {
        const QStringList on = stored->split(u',', Qt::SkipEmptyParts);
        for (const AlertKind kind : allAlertKinds)
            settings.enabled.insert(kind, on.contains(alertKindName(kind)));
    }
    return settings;
}

void Preferences::setAlertEnabled(AlertKind kind, bool enabled)
{
    AlertSettings settings = alertSettings();
    settings.enabled.insert(kind, enabled);
    QStringList on;
    for (const AlertKind each : allAlertKinds) {
        if (each != AlertKind::signedOut && settings.isEnabled(each))
            on.append(alertKindName(each));
    }
    setText(Key::enabledAlerts, on.join(u','));
}

bool Preferences::alertSound() const
{
    return isOn(Key::alertSound);
}

void Preferences::setAlertSound(bool sound)
{
    setOn(Key::alertSound, sound);
}

bool Preferences::showReadingAsText() const
{
    return isOn(Key::showReadingAsText);
}

void Preferences::setShowReadingAsText(bool show)
{
    setOn(Key::showReadingAsText, show);
}

std::optional<QString> Preferences::followedPatientId() const
{
    return text(Key::followedPatientId);
}

void Preferences::setFollowedPatientId(const QString &patientId)
{
    setText(Key::followedPatientId, patientId);
}

void Preferences::removeFollowedPatientId()
{
    remove(Key::followedPatientId);
}

GlucoseUnit Preferences::glucoseUnit() const
{
    return text(Key::glucoseUnit) == u"mmol/L" ? GlucoseUnit::mmolPerL : GlucoseUnit::mgPerDl;
}

void Preferences::setGlucoseUnit(GlucoseUnit unit)
{
    setText(Key::glucoseUnit, rawValue(unit));
}

std::optional<QString> Preferences::libreLinkUpEmail() const
{
    return text(Key::libreLinkUpEmail);
}

void Preferences::setLibreLinkUpEmail(const QString &email)
{
    setText(Key::libreLinkUpEmail, email);
}

void Preferences::removeLibreLinkUpEmail()
{
    remove(Key::libreLinkUpEmail);
}

std::optional<QString> Preferences::lastLaunchedBuild() const
{
    return text(Key::lastLaunchedBuild);
}

std::optional<QString> Preferences::availableUpdateVersion() const
{
    return text(Key::availableUpdateVersion);
}

void Preferences::setAvailableUpdateVersion(const QString &version)
{
    setText(Key::availableUpdateVersion, version);
}

void Preferences::removeAvailableUpdateVersion()
{
    remove(Key::availableUpdateVersion);
}

bool Preferences::renderImages() const
{
    return m_settings->value(keyName(Key::renderImages), false).toBool();
}

std::optional<QString> Preferences::skippedVersion() const
{
    return text(Key::skippedVersion);
}

void Preferences::setSkippedVersion(const QString &version)
{
    setText(Key::skippedVersion, version);
}

std::optional<QDateTime> Preferences::lastUpdateCheckTime() const
{
    const std::optional<QString> stored = text(Key::lastUpdateCheckTime);
    if (!stored)
        return std::nullopt;
    const QDateTime time = QDateTime::fromString(*stored, Qt::ISODate);
    if (!time.isValid())
        return std::nullopt;
    return time.toUTC();
}

void Preferences::setLastUpdateCheckTime(const QDateTime &time)
{
    setText(Key::lastUpdateCheckTime, time.toUTC().toString(Qt::ISODate));
}

void Preferences::checkBuildChange(const BuildInfo &build, WidgetReloader &widgets)
{
    const QString current = build.buildNumber;
    const std::optional<QString> stored = lastLaunchedBuild();
    if (stored == current)
        return;
    setText(Key::lastLaunchedBuild, current);
    qCInfo(lcGlucoseStore, "Build changed %s -> %s; reloading widgets",
           qUtf8Printable(stored.value_or(u"none"_s)), qUtf8Printable(current));
    widgets.reloadAllTimelines();
}

void Preferences::clearInstalledUpdateBadge(const BuildInfo &build)
{
    const std::optional<QString> waiting = availableUpdateVersion();
    if (!waiting || build.shortVersion.isEmpty())
        return;
    if (*waiting == build.shortVersion)
        removeAvailableUpdateVersion();
}

} // namespace glinta
