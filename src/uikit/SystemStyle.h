#pragma once

#include "domain/GlucoseReading.h"

#include <QColor>
#include <QFont>
#include <QPalette>

class QAbstractButton;
class QLabel;
class QWidget;

namespace glinta {

// The handful of semantic colours and text sizes the views share, so that a light and a dark palette
// (and picture export) both come out right from one place.
namespace style {

enum class TextStyle
{
    headline,
    title2,
    body,
    callout,
    caption,
    caption2,
};

bool isDark(const QPalette &palette);

QColor primaryText(const QPalette &palette);
QColor secondaryText(const QPalette &palette);
QColor tertiaryText(const QPalette &palette);
QColor quaternaryFill(const QPalette &palette);
QColor accent(const QPalette &palette);
QColor red(const QPalette &palette);
QColor orange(const QPalette &palette);
// A glucose value's colour: red below the range, orange above it, the primary text colour within.
QColor rangeColour(GlucoseRange range, const QPalette &palette);
// `color` with its alpha scaled by `opacity`.
QColor withOpacity(QColor color, qreal opacity);
QColor green(const QPalette &palette);

QFont font(TextStyle textStyle);

// A label that shows its text as it is, never as markup: service messages and names are verbatim.
QLabel *plainLabel(const QString &text, QWidget *parent);

// Figures that do not jitter when they change. Qt 6.4 cannot ask a font for its tabular figures, so this
// takes a face whose digits are all one width.
QFont tabularDigits(QFont font);

// Lifts a label whose font is smaller than its row's largest, so that their baselines line up when both
// sit on the row's bottom edge (Qt's box layouts align edges, not baselines).
void alignBaseline(QLabel *label, const QFont &rowFont);

// The prominent button style: accent fill, white label; disabled keeps the usual greyed look.
void makeProminent(QAbstractButton *button, const QPalette &colors);

// Sets a label's text style and its colour role in one go.
void apply(QLabel *label, TextStyle textStyle, const QColor &color);

// The palettes picture export renders with, and the on-screen fallback when the desktop gives none.
QPalette lightPalette();
QPalette darkPalette();

} // namespace style
} // namespace glinta
