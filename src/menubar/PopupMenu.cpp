#include "menubar/PopupMenu.h"

#include <QKeyEvent>

namespace glinta {

void PopupMenu::keyPressEvent(QKeyEvent *event)
{
    const QKeySequence pressed(event->keyCombination());
    const QList<QAction *> items = actions();
    for (QAction *action : items) {
        if (action->isEnabled() && action->isVisible() && !action->shortcut().isEmpty() &&
            action->shortcut().matches(pressed) == QKeySequence::ExactMatch) {
            // Closed first, as choosing the item with the mouse would.
            close();
            action->trigger();
            return;
        }
    }
    QMenu::keyPressEvent(event);
}

} // namespace glinta
