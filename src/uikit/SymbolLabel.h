#pragma once

#include "uikit/SystemStyle.h"

#include <QWidget>

class QLabel;

namespace glinta {

// A bundled symbol followed by text in one text style and colour, the symbol sized and centred on the
// first line so that a wrapped text hangs beside it.
class SymbolLabel : public QWidget
{
    Q_OBJECT

public:
    SymbolLabel(const QString &symbol, style::TextStyle textStyle, QWidget *parent = nullptr);

    void setText(const QString &text);
    QString text() const;
    void setWordWrap(bool on);
    // Symbol and text take the colour; call again when the palette changes.
    void setColor(const QColor &color);
    QColor color() const { return m_color; }

private:
    QString m_symbol;
    style::TextStyle m_textStyle;
    QColor m_color;
    QLabel *m_icon;
    QLabel *m_text;
};

} // namespace glinta
