#include "uikit/SymbolLabel.h"

#include "uikit/Symbols.h"

#include <QFontMetrics>
#include <QHBoxLayout>
#include <QLabel>

namespace glinta {

SymbolLabel::SymbolLabel(const QString &symbol, style::TextStyle textStyle, QWidget *parent)
    : QWidget(parent), m_symbol(symbol), m_textStyle(textStyle), m_icon(new QLabel(this)),
      m_text(new QLabel(this))
{
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    layout->addWidget(m_icon, 0, Qt::AlignTop);
    layout->addWidget(m_text, 1);
    m_icon->setAlignment(Qt::AlignCenter);
    m_text->setTextFormat(Qt::PlainText);
    m_text->setFont(style::font(textStyle));
    setColor(palette().color(QPalette::WindowText));
}

void SymbolLabel::setText(const QString &text)
{
    m_text->setText(text);
}

QString SymbolLabel::text() const
{
    return m_text->text();
}

void SymbolLabel::setWordWrap(bool on)
{
    m_text->setWordWrap(on);
}

void SymbolLabel::setColor(const QColor &color)
{
    m_color = color;
    style::apply(m_text, m_textStyle, color);
    const QFontMetrics metrics(m_text->font());
    const int size = metrics.height() - 2;
    // Drawn for a device-pixel ratio of 2, so that a picture exported at that ratio stays sharp.
    m_icon->setPixmap(symbolPixmap(m_symbol, color, size, 2.0));
    // As tall as the first line of text, with the symbol in its middle.
    m_icon->setFixedSize(size, metrics.height());
}

} // namespace glinta
