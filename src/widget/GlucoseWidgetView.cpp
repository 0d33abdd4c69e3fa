#include "GlucoseWidgetView.h"

namespace glinta {

GlucoseWidgetView::GlucoseWidgetView(GlucoseEntry entry, std::optional<WidgetFamily> familyOverride,
                                     QWidget *parent)
    : QWidget(parent), m_entry(std::move(entry)), m_familyOverride(familyOverride)
{}

void GlucoseWidgetView::setEntry(GlucoseEntry entry)
{
    m_entry = std::move(entry);
}

void GlucoseWidgetView::setFamily(WidgetFamily family)
{
    m_family = family;
}

WidgetFamily GlucoseWidgetView::family() const
{
    return m_familyOverride.value_or(m_family);
}

} // namespace glinta
