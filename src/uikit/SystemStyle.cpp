#include "uikit/SystemStyle.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QLabel>

#include <algorithm>

namespace glinta::style {

bool isDark(const QPalette &palette)
{
    return palette.color(QPalette::Window).lightnessF() < 0.5;
}

QColor primaryText(const QPalette &palette)
{
    return palette.color(QPalette::WindowText);
}

namespace {

QColor withAlpha(QColor color, qreal alpha)
{
    color.setAlphaF(alpha);
    return color;
}

} // namespace

// The usual label hierarchy: the text colour at falling strengths.
QColor secondaryText(const QPalette &palette)
{
    return withAlpha(primaryText(palette), isDark(palette) ? 0.55 : 0.5);
}

QColor tertiaryText(const QPalette &palette)
{
    return withAlpha(primaryText(palette), isDark(palette) ? 0.35 : 0.3);
}

QColor quaternaryFill(const QPalette &palette)
{
    return withAlpha(primaryText(palette), isDark(palette) ? 0.16 : 0.1);
}

QColor accent(const QPalette &palette)
{
    return isDark(palette) ? QColor(0x0A, 0x84, 0xFF) : QColor(0x00, 0x7A, 0xFF);
}

QColor red(const QPalette &palette)
{
    return isDark(palette) ? QColor(0xFF, 0x45, 0x3A) : QColor(0xFF, 0x3B, 0x30);
}

QColor orange(const QPalette &palette)
{
    return isDark(palette) ? QColor(0xFF, 0x9F, 0x0A) : QColor(0xFF, 0x95, 0x00);
}

QColor rangeColour(GlucoseRange range, const QPalette &palette)
{
    switch (range) {
    case GlucoseRange::low:
        return red(palette);
    case GlucoseRange::high:
        return orange(palette);
    case GlucoseRange::inRange:
        break;
    }
    return primaryText(palette);
}

QColor green(const QPalette &palette)
{
    return isDark(palette) ? QColor(0x30, 0xD1, 0x58) : QColor(0x34, 0xC7, 0x59);
}

QFont font(TextStyle textStyle)
{
    QFont font = QApplication::font();
    switch (textStyle) {
    case TextStyle::headline:
        font.setPixelSize(14);
        font.setWeight(QFont::DemiBold);
        break;
    case TextStyle::title2:
        font.setPixelSize(18);
        break;
    case TextStyle::body:
        font.setPixelSize(13);
        break;
    case TextStyle::callout:
        font.setPixelSize(13);
        break;
    case TextStyle::caption:
        font.setPixelSize(11);
        break;
    case TextStyle::caption2:
        font.setPixelSize(10);
        break;
    }
    return font;
}

namespace {

bool hasEqualDigits(const QFont &font)
{
    const QFontMetricsF metrics(font);
    const qreal zero = metrics.horizontalAdvance(u'0');
    for (char16_t digit = u'1'; digit <= u'9'; ++digit) {
        if (!qFuzzyCompare(metrics.horizontalAdvance(QChar(digit)), zero))
            return false;
    }
    return true;
}

} // namespace

QFont tabularDigits(QFont font)
{
    if (hasEqualDigits(font))
        return font;
    QFont dejaVu = font;
    dejaVu.setFamilies({QStringLiteral("DejaVu Sans")});
    if (hasEqualDigits(dejaVu))
        return dejaVu;
    QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    fixed.setPixelSize(font.pixelSize());
    return fixed;
}

void alignBaseline(QLabel *label, const QFont &rowFont)
{
    const int lift = QFontMetrics(rowFont).descent() - QFontMetrics(label->font()).descent();
    label->setContentsMargins(0, 0, 0, std::max(0, lift));
}

QLabel *plainLabel(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setTextFormat(Qt::PlainText);
    return label;
}

void makeProminent(QAbstractButton *button, const QPalette &colors)
{
    QPalette palette = button->palette();
    for (const auto group : {QPalette::Active, QPalette::Inactive}) {
        palette.setColor(group, QPalette::Button, accent(colors));
        palette.setColor(group, QPalette::ButtonText, Qt::white);
    }
    button->setPalette(palette);
}

void apply(QLabel *label, TextStyle textStyle, const QColor &color)
{
    label->setFont(font(textStyle));
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, color);
    label->setPalette(palette);
}

QPalette lightPalette()
{
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0xEC, 0xEC, 0xEC));
    palette.setColor(QPalette::WindowText, QColor(0x1D, 0x1D, 0x1F));
    palette.setColor(QPalette::Base, Qt::white);
    palette.setColor(QPalette::AlternateBase, QColor(0xF5, 0xF5, 0xF5));
    palette.setColor(QPalette::Text, QColor(0x1D, 0x1D, 0x1F));
    palette.setColor(QPalette::Button, QColor(0xF6, 0xF6, 0xF6));
    palette.setColor(QPalette::ButtonText, QColor(0x1D, 0x1D, 0x1F));
    palette.setColor(QPalette::Highlight, QColor(0x00, 0x7A, 0xFF));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::PlaceholderText, QColor(0x1D, 0x1D, 0x1F, 0x66));
    palette.setColor(QPalette::ToolTipBase, QColor(0xFF, 0xFF, 0xF0));
    palette.setColor(QPalette::ToolTipText, QColor(0x1D, 0x1D, 0x1F));
    palette.setColor(QPalette::Link, QColor(0x00, 0x66, 0xD6));
    return palette;
}

QPalette darkPalette()
{
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0x28, 0x28, 0x2B));
    palette.setColor(QPalette::WindowText, QColor(0xF2, 0xF2, 0xF7));
    palette.setColor(QPalette::Base, QColor(0x1E, 0x1E, 0x20));
    palette.setColor(QPalette::AlternateBase, QColor(0x32, 0x32, 0x35));
    palette.setColor(QPalette::Text, QColor(0xF2, 0xF2, 0xF7));
    palette.setColor(QPalette::Button, QColor(0x3A, 0x3A, 0x3D));
    palette.setColor(QPalette::ButtonText, QColor(0xF2, 0xF2, 0xF7));
    palette.setColor(QPalette::Highlight, QColor(0x0A, 0x84, 0xFF));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::PlaceholderText, QColor(0xF2, 0xF2, 0xF7, 0x66));
    palette.setColor(QPalette::ToolTipBase, QColor(0x3A, 0x3A, 0x3D));
    palette.setColor(QPalette::ToolTipText, QColor(0xF2, 0xF2, 0xF7));
    palette.setColor(QPalette::Link, QColor(0x41, 0x9C, 0xFF));
    return palette;
}

QColor withOpacity(QColor color, qreal opacity)
{
    color.setAlphaF(color.alphaF() * opacity);
    return color;
}

} // namespace glinta::style
