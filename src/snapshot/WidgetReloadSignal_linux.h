#pragma once

#include <QLatin1StringView>

namespace glinta::widgetReloadSignal {

// The signal on the session bus that the application sends and every glinta-widget process follows.
inline constexpr QLatin1StringView objectPath{"/com/nordvik/glinta/Widgets"};
inline constexpr QLatin1StringView interfaceName{"com.nordvik.glinta.Widgets"};
inline constexpr QLatin1StringView signalName{"ReloadAllTimelines"};

} // namespace glinta::widgetReloadSignal
