#include "snapshot/WidgetReloadListener.h"

namespace glinta {

// No reload signal to follow; isListening() stays false.
WidgetReloadListener::WidgetReloadListener(QObject *parent) : QObject(parent) {}

WidgetReloadListener::~WidgetReloadListener() = default;

} // namespace glinta
