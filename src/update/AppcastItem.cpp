#include "AppcastItem.h"

namespace glinta {

QString AppcastError::description() const
{
    return m_problem;
}

} // namespace glinta
