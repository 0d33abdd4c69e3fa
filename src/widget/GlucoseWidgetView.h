#pragma once

#include "widget/GlucoseEntry.h"

#include <QList>
#include <QWidget>

#include <optional>

class QLabel;
class QVBoxLayout;

namespace glinta {

class ElidedLabel;
class WidgetChart;

enum class WidgetFamily
{
    systemSmall,
    systemMedium,
    systemLarge,
};

// The desktop widget's face: the published reading, its age and staleness, and in the larger sizes the
// chart and statistics. Drawn from the entry alone, so picture export can draw it too. Transparent: the
// host draws the background and margins.
class GlucoseWidgetView : public QWidget
{
    Q_OBJECT

public:
    explicit GlucoseWidgetView(GlucoseEntry entry, std::optional<WidgetFamily> familyOverride = std::nullopt,
                               QWidget *parent = nullptr);

    void setEntry(GlucoseEntry entry);
    GlucoseEntry entry() const { return m_entry; }

    // The size the host shows; the override, when set, wins.
    void setFamily(WidgetFamily family);
    WidgetFamily family() const;

    // The chart of the medium and large faces; nullptr in the small face and the empty state.
    WidgetChart *chart() const { return m_parts.chart; }

protected:
    void changeEvent(QEvent *event) override;

private:
    enum class Face
    {
        empty,
        small,
        medium,
        large,
    };

    // Everything that shows the entry; which of them exist depends on the face.
    struct Parts
    {
        QLabel *emptySymbol = nullptr;
        QLabel *emptyText = nullptr;
        QLabel *dropSymbol = nullptr;
        ElidedLabel *connection = nullptr;
        QLabel *stale = nullptr;
        QLabel *value = nullptr;
        QLabel *trend = nullptr;
        ElidedLabel *unit = nullptr;
        ElidedLabel *age = nullptr;
        WidgetChart *chart = nullptr;
        QLabel *statisticsCaption = nullptr;
        QList<QLabel *> statisticTitles;
        QLabel *average = nullptr;
        QLabel *inRange = nullptr;
        QLabel *readingCount = nullptr;
    };

    Face wantedFace() const;
    void refresh();
    void build(Face face);
    void buildEmptyState(QWidget *page);
    QWidget *makeHeader(QWidget *parent);
    QWidget *makeReadingRow(int valuePixelSize, bool large, QWidget *parent);
    QWidget *makeColumn(int valuePixelSize, QWidget *parent);
    QWidget *makeStatistics(QWidget *parent);
    void fill();
    void fitValueIntoColumn();

    GlucoseEntry m_entry;
    std::optional<WidgetFamily> m_familyOverride;
    WidgetFamily m_family = WidgetFamily::systemSmall;
    QVBoxLayout *m_layout;
    QWidget *m_page = nullptr;
    Face m_face = Face::empty;
    Parts m_parts;
};

} // namespace glinta
