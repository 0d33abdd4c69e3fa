#include "support/BuildInfo.h"

#include "BuildInfoValues.h"

namespace glinta {

BuildInfo BuildInfo::current()
{
    return {QStringLiteral(GLINTA_SHORT_VERSION), QStringLiteral(GLINTA_BUILD_NUMBER),
            QStringLiteral(GLINTA_UPDATE_FEED_URL)};
}

} // namespace glinta
