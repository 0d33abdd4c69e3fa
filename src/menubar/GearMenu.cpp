#include "menubar/GearMenu.h"

#include "menubar/PopupMenu.h"
#include "menubar/WindowRegistry.h"
#include "update/Updater.h"

#include <QPointer>

using namespace Qt::StringLiterals;

namespace glinta {

QMenu *makeGearMenu(WindowRegistry *windows, Updater *updater, std::function<void()> quit, QWidget *parent)
{
    auto *menu = new PopupMenu(parent);
    const QPointer<WindowRegistry> registry(windows);
    const auto addWindowItem = [menu, registry](const QString &text, const QString &identifier) {
        QAction *item = menu->addAction(text, menu, [registry, identifier] {
            if (registry)
                registry->open(identifier);
        });
        item->setEnabled(registry && registry->isDeclared(identifier));
        return item;
    };

    addWindowItem(QMenu::tr("About Glinta"), u"about"_s);

    const QPointer<Updater> checker(updater);
    QAction *check = menu->addAction(QMenu::tr("Check for Updates…"), menu, [checker] {
        if (checker)
            checker->checkForUpdates();
    });
    // Asked once, now: a check that is running dims the item until the menu is next opened.
    check->setEnabled(checker && checker->canCheckForUpdates());

    addWindowItem(QMenu::tr("What's New…"), u"whats-new"_s);

    menu->addSeparator();
    addWindowItem(QMenu::tr("Settings…"), u"settings"_s)->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));

    menu->addSeparator();
    QAction *quitItem = menu->addAction(QMenu::tr("Quit Glinta"), menu, std::move(quit));
    quitItem->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    return menu;
}

} // namespace glinta
