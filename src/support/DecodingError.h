#pragma once

#include "support/Error.h"

namespace glinta {

// A document (a service response, the snapshot file) that breaks the presence or type rules. One type for
// every such failure, so later layers can pass it on without knowing where it came from.
class DecodingError : public Error
{
public:
    enum class Kind
    {
        notJson,
        missingMember,
        wrongValue,
        tooLarge,
    };

    static DecodingError notJson(QString document, QString reason);
    static DecodingError missingMember(QString document, QString path, QString expected);
    // `found` is a short, safe rendering of the offending value ("a string", "3.5", "null").
    static DecodingError wrongValue(QString document, QString path, QString found, QString expected);
    static DecodingError tooLarge(QString document, QString limit);

    Kind kind() const { return m_kind; }
    // Where in the document, as in data.graphData[3].Timestamp; empty for the document itself.
    QString path() const { return m_path; }
    QString description() const override;

private:
    DecodingError(Kind kind, QString document, QString path, QString found, QString expected);

    Kind m_kind;
    QString m_document;
    QString m_path;
    QString m_found;
    QString m_expected;
};

} // namespace glinta
