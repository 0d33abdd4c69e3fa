#include "support/DecodingError.h"

using namespace Qt::StringLiterals;

namespace glinta {

DecodingError::DecodingError(Kind kind, QString document, QString path, QString found, QString expected)
    : m_kind(kind), m_document(std::move(document)), m_path(std::move(path)), m_found(std::move(found)),
      m_expected(std::move(expected))
{}

DecodingError DecodingError::notJson(QString document, QString reason)
{
    return DecodingError(Kind::notJson, std::move(document), {}, std::move(reason), {});
}

DecodingError DecodingError::missingMember(QString document, QString path, QString expected)
{
    return DecodingError(Kind::missingMember, std::move(document), std::move(path), {}, std::move(expected));
}

DecodingError DecodingError::wrongValue(QString document, QString path, QString found, QString expected)
{
    return DecodingError(Kind::wrongValue, std::move(document), std::move(path), std::move(found),
                         std::move(expected));
}

DecodingError DecodingError::tooLarge(QString document, QString limit)
{
    return DecodingError(Kind::tooLarge, std::move(document), {}, std::move(limit), {});
}

QString DecodingError::description() const
{
    const QString where = m_path.isEmpty() ? u"at the top level"_s : u"for \""_s + m_path + u'"';
    switch (m_kind) {
    case Kind::notJson:
        return u"The "_s + m_document + u" is not valid JSON ("_s + m_found + u")."_s;
    case Kind::missingMember:
        return u"The "_s + m_document + u" is missing \""_s + m_path + u"\" (expected "_s + m_expected +
               u")."_s;
    case Kind::wrongValue:
        return u"The "_s + m_document + u" has "_s + m_found + u' ' + where + u" (expected "_s + m_expected +
               u")."_s;
    case Kind::tooLarge:
        return u"The "_s + m_document + u" is larger than "_s + m_found + u'.';
    }
    Q_UNREACHABLE();
    return {};
}

} // namespace glinta
