#pragma once

#include "uikit/SystemStyle.h"

#include <QLabel>

// A view's parts by object name, or by what they read or what a screen reader calls them.
inline QString text(const QWidget *root, const QString &name)
{
    const auto *label = root->findChild<QLabel *>(name);
    return label ? label->text() : u"<missing>"_qs;
}

inline bool shows(const QWidget *root, const QString &name)
{
    const auto *widget = root->findChild<QWidget *>(name);
    return widget && widget->isVisible();
}

template <typename T> T *named(const QWidget *root, const QString &name)
{
    for (T *candidate : root->findChildren<T *>()) {
        if (candidate->accessibleName() == name || candidate->text() == name)
            return candidate;
    }
    return nullptr;
}

// The colour a label's text is drawn in, and the palette's colour a row names: "red", "orange" or "primary".
inline QColor ink(const QWidget *root, const QString &name)
{
    return root->findChild<QLabel *>(name)->palette().color(QPalette::WindowText);
}

inline QColor tint(const QPalette &palette, const QString &name)
{
    using namespace glinta::style;
    return name == u"red" ? red(palette) : name == u"orange" ? orange(palette) : primaryText(palette);
}
