#include "menubar/WindowRegistry.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <QShortcut>
#include <QVBoxLayout>

namespace glinta {

WindowRegistry::~WindowRegistry()
{
    for (const QPointer<QWidget> &window : std::as_const(m_windows))
        delete window.data();
}

void WindowRegistry::declare(const QString &identifier, const QString &title, ContentFactory makeContent)
{
    m_declarations.insert(identifier, Declaration{title, std::move(makeContent)});
}

QWidget *WindowRegistry::open(const QString &identifier)
{
    if (QWidget *existing = window(identifier)) {
        activateWindow(existing);
        return existing;
    }
    const auto declaration = m_declarations.constFind(identifier);
    if (declaration == m_declarations.cend())
        return nullptr;

    auto *window = new QWidget(nullptr, Qt::Window);
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->setObjectName(identifier);
    window->setWindowTitle(declaration->title);
    auto *layout = new QVBoxLayout(window);
    layout->setContentsMargins(0, 0, 0, 0);
    // Sized by its content and never larger.
    layout->setSizeConstraint(QLayout::SetFixedSize);
    layout->addWidget(declaration->makeContent());
    // As in any dialog, Escape puts the window away.
    auto *escape = new QShortcut(QKeySequence(Qt::Key_Escape), window);
    connect(escape, &QShortcut::activated, window, &QWidget::close);
    layout->activate();

    centreOnScreen(window);

    m_windows.insert(identifier, window);
    activateWindow(window);
    Q_EMIT opened(identifier);
    return window;
}

void WindowRegistry::dismiss(const QString &identifier)
{
    if (QWidget *open = window(identifier))
        open->close();
}

QWidget *WindowRegistry::window(const QString &identifier) const
{
    return m_windows.value(identifier).data();
}

void centreOnScreen(QWidget *window)
{
    const QScreen *screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    QRect frame(QPoint(), window->size());
    frame.moveCenter(screen->availableGeometry().center());
    window->move(frame.topLeft());
}

void activateWindow(QWidget *window)
{
    window->show();
    window->setWindowState((window->windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    window->raise();
    window->activateWindow();
}

} // namespace glinta
