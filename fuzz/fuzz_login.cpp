// The login response; what it decodes to also goes through the login body's encoder, whose JSON must
// read back as the same text.
#include "FuzzSupport.h"
#include "LLURecords.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;
using namespace glinta;

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::initialise();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto response =
        fuzz::attempt([&] { return decodeLLUResponse<LLULoginData>(fuzz::bytes(data, size)); });
    if (!response || !response->data)
        return 0;

    const LLULoginData &login = *response->data;
    const LoginBody body{login.region.value_or(QString()),
                         login.authTicket ? login.authTicket->token : QString()};
    const QJsonObject parsed = QJsonDocument::fromJson(encodeLoginBody(body)).object();
    fuzz::require(parsed.value("email"_L1).toString() == body.email, "login body e-mail does not read back");
    fuzz::require(parsed.value("password"_L1).toString() == body.password,
                  "login body password does not read back");
    return 0;
}
