#include "uikit/ElidedLabel.h"

#include <QPainter>
#include <QStyle>

using namespace Qt::StringLiterals;

namespace glinta {

ElidedLabel::ElidedLabel(QWidget *parent) : QLabel(parent)
{
    setTextFormat(Qt::PlainText);
    setWordWrap(false);
}

QSize ElidedLabel::minimumSizeHint() const
{
    const QMargins margins = contentsMargins();
    return {fontMetrics().horizontalAdvance(u"…"_s) + margins.left() + margins.right(),
            QLabel::minimumSizeHint().height()};
}

void ElidedLabel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    const QRect area = contentsRect();
    const QString shown = fontMetrics().elidedText(text(), Qt::ElideRight, area.width());
    style()->drawItemText(&painter, area, QStyle::visualAlignment(layoutDirection(), alignment()), palette(),
                          isEnabled(), shown, foregroundRole());
}

} // namespace glinta
