#include "store/AlertMonitor.h"

#include "store/GlucoseStore.h"
#include "store/Preferences.h"

#include <array>

namespace glinta {

namespace {

// The one the panel shows when several hold: first whether the numbers can be trusted at all, then the
// most urgent.
constexpr std::array foremostFirst{AlertKind::signedOut, AlertKind::noReadings, AlertKind::urgentLow,
                                   AlertKind::low,       AlertKind::high,       AlertKind::fallingFast,
                                   AlertKind::risingFast};

} // namespace

AlertMonitor::AlertMonitor(GlucoseStore *store, Preferences *preferences, QObject *parent)
    : QObject(parent), m_store(store), m_preferences(preferences),
      m_state(decodeAlertState(preferences->alertState().value_or(QString()).toUtf8()))
{}

void AlertMonitor::start()
{
    for (auto changed : {&GlucoseStore::latestChanged, &GlucoseStore::nowChanged,
                         &GlucoseStore::credentialFailureChanged, &GlucoseStore::savedEmailChanged})
        connect(m_store, changed, this, &AlertMonitor::evaluate, Qt::UniqueConnection);
    // Not on its own "alertState", which it writes while it evaluates.
    connect(m_preferences, &Preferences::changed, this, [this](Preferences::Key key) {
        using Key = Preferences::Key;
        if (key == Key::targetLowMgPerDl || key == Key::targetHighMgPerDl || key == Key::enabledAlerts ||
            key == Key::glucoseUnit)
            evaluate();
    });
    evaluate();
}

void AlertMonitor::snooze(AlertKind kind, std::chrono::minutes duration)
{
    if (!m_store)
        return;
    m_state.snoozedUntil.insert(kind, m_store->now().addSecs(std::chrono::seconds(duration).count()));
    const bool wasActive = m_state.active.take(kind);
    save();
    if (wasActive)
        Q_EMIT closed(kind);
    showForemost();
}

void AlertMonitor::evaluate()
{
    if (!m_store)
        return;
    QList<AlertAction> actions;
    if (!m_store->savedEmail()) {
        // Signed out by the user: nothing is followed, nothing is owed.
        for (auto it = m_state.active.cbegin(); it != m_state.active.cend(); ++it)
            actions.append({AlertAction::Type::close, it.key()});
        m_state = {};
    } else {
        actions = AlertEngine::evaluate(m_store->latest(), m_store->now(), m_store->credentialFailure(),
                                        m_preferences->alertSettings(), m_state);
    }
    showForemost();
    if (actions.isEmpty())
        return;
    save();
    for (const AlertAction &action : std::as_const(actions)) {
        if (action.type == AlertAction::Type::raise)
            Q_EMIT raised(action.kind);
        else
            Q_EMIT closed(action.kind);
    }
}

void AlertMonitor::showForemost()
{
    std::optional<AlertKind> foremost;
    for (const AlertKind kind : foremostFirst) {
        if (m_state.active.value(kind)) {
            foremost = kind;
            break;
        }
    }
    m_store->setActiveAlert(foremost);
}

void AlertMonitor::save()
{
    m_preferences->setAlertState(QString::fromUtf8(encodeAlertState(m_state)));
}

} // namespace glinta
