#pragma once

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QWidget>

#include <functional>

namespace glinta {

// The application's single-instance windows, opened and closed by identifier. Each opening of a closed
// window builds its content anew; opening an open one brings it forward.
class WindowRegistry : public QObject
{
    Q_OBJECT

public:
    using ContentFactory = std::function<QWidget *()>;

    using QObject::QObject;
    ~WindowRegistry() override;

    void declare(const QString &identifier, const QString &title, ContentFactory makeContent);

    bool isDeclared(const QString &identifier) const { return m_declarations.contains(identifier); }

    // Returns the window, or nullptr for an undeclared identifier.
    QWidget *open(const QString &identifier);
    void dismiss(const QString &identifier);
    // The open window, or nullptr.
    QWidget *window(const QString &identifier) const;

Q_SIGNALS:
    void opened(const QString &identifier);

private:
    struct Declaration
    {
        QString title;
        ContentFactory makeContent;
    };

    QHash<QString, Declaration> m_declarations;
    QHash<QString, QPointer<QWidget>> m_windows;
};

// Brings a window to the front, even when another application is active.
void activateWindow(QWidget *window);

// Places a window at the centre of the screen the user is working on (where the pointer is).
void centreOnScreen(QWidget *window);

} // namespace glinta
