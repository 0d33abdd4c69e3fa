#pragma once

#include "GlucoseEntry.h"

#include <QWidget>

#include <optional>

namespace glinta {

enum class WidgetFamily
{
    systemSmall,
    systemMedium,
    systemLarge,
};

// The desktop widget's face: the published reading, its age and staleness, and in the larger sizes the
// chart and statistics. Drawn from the entry alone, so picture export can draw it too.
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

private:
    GlucoseEntry m_entry;
    std::optional<WidgetFamily> m_familyOverride;
    WidgetFamily m_family = WidgetFamily::systemSmall;
};

} // namespace glinta
