#include "domain/MenuBarTitle.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace glinta {

MenuBarTitle menuBarTitle(const std::optional<GlucoseReading> &latest, GlucoseUnit unit, const QDateTime &now,
                          const std::optional<QString> &waitingVersion, std::optional<AlertKind> alert)
{
    MenuBarTitle title;
    // Digits are equally wide in the fonts top bars use; 8 stands for any of them.
    title.labelGuide =
        (unit == GlucoseUnit::mmolPerL ? u"88.8"_s : u"888"_s) + u" \u2197 \u26A0\uFE0E \u2022"_s;
    if (alert)
        title.alert = alertTitle(*alert, latest, unit);
    if (!latest) {
        title.accessibilityLabel = u"Glinta: no glucose data"_s;
        return title;
    }

    title.showsSymbol = false;
    title.value = format(unit, latest->mgPerDl);
    title.trend = latest->trend;
    // Strictly more than fifteen minutes, to the millisecond: exactly 900 s is still fresh.
    title.isStale = isStale(*latest, now);
    title.updateWaiting = waitingVersion.has_value();

    title.text = title.value;
    QStringList spoken{u"Glucose "_s + title.value + u' ' + rawValue(unit)};
    if (title.trend) {
        title.text += u' ' + symbol(*title.trend);
        spoken.append(spokenName(*title.trend));
    }
    if (title.isStale) {
        // The variation selector asks for the monochrome text glyph, not an emoji.
        title.text += u" \u26A0\uFE0E"_s;
        spoken.append(u"data is stale"_s);
    }
    if (title.updateWaiting) {
        title.text += u" \u2022"_s;
        spoken.append(u"update "_s + *waitingVersion + u" available"_s);
    }
    title.accessibilityLabel = spoken.join(u", "_s);
    return title;
}

} // namespace glinta
