#pragma once

#include "domain/GlucoseUnit.h"

#include <QWidget>

namespace glinta {

// A still drawing of the unit picker for exported pictures: both units side by side, the chosen one on
// a raised highlight. It takes no input.
class StaticUnitPicker : public QWidget
{
    Q_OBJECT

public:
    explicit StaticUnitPicker(GlucoseUnit unit, QWidget *parent = nullptr);

    GlucoseUnit unit() const { return m_unit; }
    void setUnit(GlucoseUnit unit);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    GlucoseUnit m_unit;
};

} // namespace glinta
