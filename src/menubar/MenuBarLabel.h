#pragma once

#include "domain/MenuBarTitle.h"

#include <QObject>
#include <QPointer>

namespace glinta {

class GlucoseStore;
class Preferences;

// Follows the store (its alert included) and the waiting-update preference, and says when the title changes.
class MenuBarLabel : public QObject
{
    Q_OBJECT

public:
    MenuBarLabel(GlucoseStore *store, Preferences *preferences, QObject *parent = nullptr);

    MenuBarTitle title() const { return m_title; }

Q_SIGNALS:
    void titleChanged();

private:
    void update();

    QPointer<GlucoseStore> m_store;
    QPointer<Preferences> m_preferences;
    MenuBarTitle m_title;
};

} // namespace glinta
