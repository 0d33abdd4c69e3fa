#pragma once

#include <QLatin1StringView>

namespace glinta {

// Tells every running glinta-widget to read the snapshot again. Virtual so that tests can count calls.
class WidgetReloader
{
public:
    static constexpr QLatin1StringView objectPath{"/com/nordvik/glinta/Widgets"};
    static constexpr QLatin1StringView interfaceName{"com.nordvik.glinta.Widgets"};
    static constexpr QLatin1StringView signalName{"ReloadAllTimelines"};

    virtual ~WidgetReloader() = default;

    // A signal on the session bus that every widget process listens to. Without a session bus there is
    // no widget to tell either; that is said once, at info level.
    virtual void reloadAllTimelines();

private:
    bool m_saidNoBus = false;
};

} // namespace glinta
