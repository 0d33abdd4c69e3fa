#include "support/Error.h"

namespace glinta {

const char *Error::what() const noexcept
{
    if (m_what.isEmpty())
        m_what = description().toUtf8();
    return m_what.constData();
}

} // namespace glinta
