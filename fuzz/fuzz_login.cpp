// The login response; what it decodes to also goes through the login body's encoder, whose JSON must
// read back as the same text.
#include "FuzzSupport.h"
#include "client/LLURecords.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;
using namespace glinta;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto login = fuzz::serviceData<LLULoginData>(data, size);
    if (!login)
        return 0;

    const LoginBody body{login->region.value_or(QString()),
                         login->authTicket ? login->authTicket->token : QString()};
    const QJsonObject parsed = QJsonDocument::fromJson(encodeLoginBody(body)).object();
    fuzz::require(parsed.value("email"_L1).toString() == body.email, "login body e-mail does not read back");
    fuzz::require(parsed.value("password"_L1).toString() == body.password,
                  "login body password does not read back");
    return 0;
}
