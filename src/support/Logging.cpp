#include "support/Logging.h"

Q_LOGGING_CATEGORY(lcLibreLinkUpClient, "com.nordvik.glinta.LibreLinkUpClient", QtInfoMsg)
Q_LOGGING_CATEGORY(lcGlucoseStore, "com.nordvik.glinta.GlucoseStore", QtInfoMsg)
Q_LOGGING_CATEGORY(lcSettingsView, "com.nordvik.glinta.SettingsView", QtInfoMsg)
Q_LOGGING_CATEGORY(lcUpdates, "com.nordvik.glinta.Updates", QtInfoMsg)
Q_LOGGING_CATEGORY(lcImageExport, "com.nordvik.glinta.ImageExport", QtInfoMsg)
Q_LOGGING_CATEGORY(lcApp, "com.nordvik.glinta.App", QtInfoMsg)
Q_LOGGING_CATEGORY(lcWidget, "com.nordvik.glinta.Widget", QtInfoMsg)
Q_LOGGING_CATEGORY(lcAlerts, "com.nordvik.glinta.Alerts", QtInfoMsg)
