#pragma once

#include <QTimer>
#include <QWidget>

namespace glinta {

// A small indeterminate spinner. It turns only while visible, so a hidden one costs nothing.
class ProgressSpinner : public QWidget
{
    Q_OBJECT

public:
    explicit ProgressSpinner(int diameter = 16, QWidget *parent = nullptr);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    int m_diameter;
    int m_step = 0;
    QTimer m_timer;
};

} // namespace glinta
