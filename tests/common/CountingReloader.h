#pragma once

#include "snapshot/WidgetReloader.h"

// Counts reload requests instead of sending them.
class CountingReloader : public glinta::WidgetReloader
{
public:
    void reloadAllTimelines() override { ++reloads; }
    int reloads = 0;
};
