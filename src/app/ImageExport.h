#pragma once

#include "snapshot/GlucoseSnapshot.h"

#include <QDateTime>
#include <QDir>
#include <QString>

#include <functional>

class QWidget;

namespace glinta {

class Preferences;
class Updater;

// Pictures of the widget in its three sizes and of the panel, light and dark, drawn from built-in sample
// data for screenshots. Switched on by the "RenderImages" preference, which only someone outside the
// program sets.

enum class Appearance
{
    light,
    dark,
};

// Twelve hours of a gentle wave in quarter-hour steps, and a steady in-range reading 137 s old: fresh
// enough that no picture shows the stale mark.
GlucoseSnapshot sampleSnapshot(const QDateTime &now);

// Writes the eight pictures "glinta-<name>-<light|dark>.png" into `directory`, replacing any there. Runs
// on the caller's thread, shows nothing, and logs each picture's fate under ImageExport; a picture that
// fails is skipped.
void exportImages(Updater *updater, const QString &directory = QDir::tempPath(),
                  const QDateTime &now = QDateTime::currentDateTimeUtc());

// Builds the view inside its parent, which already carries the appearance's palette, so that a view that
// reads its colours while it is being built gets the right ones.
using ViewFactory = std::function<QWidget *(QWidget *parent)>;

// One picture: the view laid out in exactly width × height, on a rounded rectangle of the appearance's
// background, drawn at twice the size, written as PNG. Failures are logged, not thrown.
void renderImage(const ViewFactory &makeView, const QString &name, Appearance appearance, int width,
                 int height, qreal cornerRadius, const QString &directory = QDir::tempPath());

// What the program does once its status item is first shown: export when "RenderImages" is on.
void runLaunchExport(const Preferences &preferences, Updater *updater,
                     const QString &directory = QDir::tempPath());

} // namespace glinta
