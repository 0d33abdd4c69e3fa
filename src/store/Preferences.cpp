#include "Preferences.h"

#include "BuildInfo.h"
#include "Logging.h"
#include "WidgetReloader.h"

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
