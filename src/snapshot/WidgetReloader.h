#pragma once

namespace glinta {

// Tells every running glinta-widget to read the snapshot again. Virtual so that tests can count calls.
class WidgetReloader
{
public:
    virtual ~WidgetReloader() = default;

    // On Linux a signal on the session bus that every widget process listens to; without a session bus
    // there is no widget to tell either, which is said once, at info level. A no-op where the side has
    // no such signal.
    virtual void reloadAllTimelines();

private:
    bool m_saidNoBus = false;
};

} // namespace glinta
