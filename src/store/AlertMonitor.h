#pragma once

#include "store/AlertEngine.h"

#include <QObject>
#include <QPointer>

#include <chrono>

namespace glinta {

class GlucoseStore;
class Preferences;

// Watches the store and the alert settings and says which alerts go off, repeat or end; the foremost one
// that holds goes to the store for the views. What alerts remember is kept in the preferences, so a
// restart in the middle of a low does not alert again before its interval is over.
class AlertMonitor : public QObject
{
    Q_OBJECT

public:
    AlertMonitor(GlucoseStore *store, Preferences *preferences, QObject *parent = nullptr);

    // Looks at once, and from then on at every change of the store or the settings.
    void start();

    bool isActive(AlertKind kind) const { return m_state.active.value(kind); }
    // Quiet for `duration`: its notification goes, and it goes off again no sooner.
    void snooze(AlertKind kind, std::chrono::minutes duration);

Q_SIGNALS:
    void raised(glinta::AlertKind kind);
    void closed(glinta::AlertKind kind);

private:
    void evaluate();
    void showForemost();
    void save();

    QPointer<GlucoseStore> m_store;
    Preferences *m_preferences;
    AlertState m_state;
};

} // namespace glinta
