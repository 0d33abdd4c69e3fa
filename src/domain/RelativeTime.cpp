#include "domain/RelativeTime.h"

using namespace Qt::StringLiterals;

namespace glinta {

namespace {

struct Unit
{
    std::chrono::seconds::rep seconds;
    QString singular;
    QString plural;
};

QString amount(std::chrono::seconds::rep count, const Unit &unit)
{
    return QString::number(count) + u' ' + (count == 1 ? unit.singular : unit.plural);
}

} // namespace

QString relativeTimeText(std::chrono::seconds age)
{
    static const Unit units[] = {
        {86400, u"day"_s, u"days"_s},
        {3600, u"hr"_s, u"hr"_s},
        {60, u"min"_s, u"min"_s},
        {1, u"sec"_s, u"sec"_s},
    };
    const auto total = std::max<std::chrono::seconds::rep>(age.count(), 0);
    for (std::size_t i = 0; i + 1 < std::size(units); ++i) {
        const Unit &major = units[i];
        if (total < major.seconds)
            continue;
        const Unit &minor = units[i + 1];
        QString text = amount(total / major.seconds, major);
        // Whatever is below the second unit is dropped, not rounded: the text never runs ahead of time.
        const auto rest = (total % major.seconds) / minor.seconds;
        if (rest > 0)
            text += u", "_s + amount(rest, minor);
        return text;
    }
    return amount(total, units[std::size(units) - 1]);
}

} // namespace glinta
