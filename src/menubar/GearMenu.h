#pragma once

#include <functional>

class QMenu;
class QWidget;

namespace glinta {

class Updater;
class WindowRegistry;

// The gear's menu as it would open now: About, Check for Updates, What's New, Settings, Quit. The panel's
// gear opens it, and so does the status item where the tray host asks for a menu. The caller owns it.
QMenu *makeGearMenu(WindowRegistry *windows, Updater *updater, std::function<void()> quit, QWidget *parent);

} // namespace glinta
