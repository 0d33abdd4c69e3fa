#pragma once

#include <QLoggingCategory>

// One category per component, named "com.nordvik.glinta.<Component>".
Q_DECLARE_LOGGING_CATEGORY(lcLibreLinkUpClient)
Q_DECLARE_LOGGING_CATEGORY(lcGlucoseStore)
Q_DECLARE_LOGGING_CATEGORY(lcSettingsView)
Q_DECLARE_LOGGING_CATEGORY(lcUpdates)
Q_DECLARE_LOGGING_CATEGORY(lcImageExport)
Q_DECLARE_LOGGING_CATEGORY(lcApp)
Q_DECLARE_LOGGING_CATEGORY(lcWidget)
Q_DECLARE_LOGGING_CATEGORY(lcAlerts)
