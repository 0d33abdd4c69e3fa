#pragma once

#include "support/BuildInfo.h"

#include <QWidget>

namespace glinta {

// The About window: the icon, name and version, and the credits.
class AboutView : public QWidget
{
    Q_OBJECT

public:
    explicit AboutView(const BuildInfo &build, QWidget *parent = nullptr);

    static QString credits();
};

} // namespace glinta
