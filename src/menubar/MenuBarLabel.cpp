#include "MenuBarLabel.h"

#include "GlucoseConstants.h"
#include "GlucoseStore.h"
#include "Preferences.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace glinta {

MenuBarTitle menuBarTitle(const std::optional<GlucoseReading> &latest, GlucoseUnit unit, const QDateTime &now,
                          const std::optional<QString> &waitingVersion, std::optional<AlertKind> alert)
{
    MenuBarTitle title;
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

MenuBarLabel::MenuBarLabel(GlucoseStore *store, Preferences *preferences, QObject *parent)
    : QObject(parent), m_store(store), m_preferences(preferences)
{
    connect(store, &GlucoseStore::latestChanged, this, &MenuBarLabel::update);
    connect(store, &GlucoseStore::unitChanged, this, &MenuBarLabel::update);
    connect(store, &GlucoseStore::nowChanged, this, &MenuBarLabel::update);
    connect(store, &GlucoseStore::activeAlertChanged, this, &MenuBarLabel::update);
    if (preferences) {
        connect(preferences, &Preferences::changed, this, [this](Preferences::Key key) {
            if (key == Preferences::Key::availableUpdateVersion)
                update();
        });
    }
    m_title = menuBarTitle(store->latest(), store->unit(), store->now(),
                           preferences ? preferences->availableUpdateVersion() : std::nullopt,
                           store->activeAlert());
}

void MenuBarLabel::update()
{
    if (!m_store)
        return;
    const MenuBarTitle title = menuBarTitle(
        m_store->latest(), m_store->unit(), m_store->now(),
        m_preferences ? m_preferences->availableUpdateVersion() : std::nullopt, m_store->activeAlert());
    if (title == m_title)
        return;
    m_title = title;
    Q_EMIT titleChanged();
}

} // namespace glinta
