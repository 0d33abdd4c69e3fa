#include "domain/AlertKind.h"

#include "domain/RelativeTime.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace glinta {

QString alertKindName(AlertKind kind)
{
    static const QStringList names{u"urgentLow"_s,  u"low"_s,        u"high"_s,     u"fallingFast"_s,
                                   u"risingFast"_s, u"noReadings"_s, u"signedOut"_s};
    return names.at(int(kind));
}

std::optional<AlertKind> alertKindFromName(QStringView name)
{
    for (const AlertKind kind : allAlertKinds) {
        if (alertKindName(kind) == name)
            return kind;
    }
    return std::nullopt;
}

QString alertTitle(AlertKind kind, const std::optional<GlucoseReading> &latest, GlucoseUnit unit)
{
    static const QStringList names{u"Urgent low"_s,
                                   u"Low"_s,
                                   u"High"_s,
                                   u"Falling fast"_s,
                                   u"Rising fast"_s,
                                   u"No new readings"_s,
                                   u"Signed out by LibreLinkUp"_s};
    const QString &name = names.at(int(kind));
    // The last two are about the service, not a value.
    if (!latest || kind == AlertKind::noReadings || kind == AlertKind::signedOut)
        return name;
    QString title = name + u": "_s + format(unit, latest->mgPerDl);
    if (latest->trend)
        title += u' ' + symbol(*latest->trend);
    return title;
}

QString alertBody(AlertKind kind, const std::optional<GlucoseReading> &latest,
                  const std::optional<QString> &name, const QDateTime &now)
{
    QStringList parts;
    if (name)
        parts.append(*name);
    if (kind == AlertKind::signedOut) {
        parts.append(u"Sign in again to see new readings"_s);
    } else if (latest) {
        // Whole minutes are what a glance needs; seconds would only date the text faster.
        const auto age = std::chrono::duration_cast<std::chrono::minutes>(
            std::chrono::milliseconds(std::max<qint64>(0, latest->date.msecsTo(now))));
        const QString ago = age < std::chrono::minutes(1) ? u"just now"_s
                            : age < std::chrono::hours(1) ? QString::number(age.count()) + u" min ago"_s
                                                          : relativeTimeText(age) + u" ago"_s;
        parts.append(kind == AlertKind::noReadings ? u"last reading "_s + ago : ago);
    }
    return parts.join(u" \u00B7 "_s);
}

} // namespace glinta
