#pragma once

#include <QMenu>

namespace glinta {

// A menu shown on its own, not from a menu bar. Qt dispatches an action's shortcut only through the
// widget the menu hangs from, so a free-standing pop-up would ignore its own Ctrl+Q; this one answers the
// shortcuts of its enabled items while it is open.
class PopupMenu : public QMenu
{
    Q_OBJECT

public:
    using QMenu::QMenu;

protected:
    void keyPressEvent(QKeyEvent *event) override;
};

} // namespace glinta
