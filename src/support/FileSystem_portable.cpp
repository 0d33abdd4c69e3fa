#include "support/FileSystem.h"

namespace glinta {

std::optional<QString> syncToDisk(const QFileDevice &)
{
    return std::nullopt;
}

std::optional<QString> writeRefusal(const QString &)
{
    return std::nullopt;
}

} // namespace glinta
