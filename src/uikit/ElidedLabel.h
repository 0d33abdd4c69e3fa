#pragma once

#include <QLabel>

namespace glinta {

// One line of plain text that ends in "…" when it does not fit, instead of widening its row: a long
// connection name must not push the stale mark out of a small widget.
class ElidedLabel : public QLabel
{
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget *parent = nullptr);

    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
};

} // namespace glinta
