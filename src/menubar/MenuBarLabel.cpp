#include "menubar/MenuBarLabel.h"

#include "store/GlucoseStore.h"
#include "store/Preferences.h"

namespace glinta {

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
