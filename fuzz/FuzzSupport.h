#pragma once

#include "client/LLURecords.h"
#include "support/Error.h"

#include <QByteArray>
#include <QLoggingCategory>
#include <QString>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

// Shared by the fuzz targets. A glinta::Error is how a decoder refuses bad input, so it ends an input
// quietly; any other exception, a sanitizer report or a broken invariant is a finding.
namespace glinta::fuzz {

// A copy, as the program gets it from the network or a file: Qt may rely on the terminating NUL.
inline QByteArray bytes(const std::uint8_t *data, std::size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
}

[[noreturn]] inline void finding(const char *what, const QString &detail = {})
{
    std::fprintf(stderr, "FINDING: %s%s%s\n", what, detail.isEmpty() ? "" : ": ", qUtf8Printable(detail));
    std::abort();
}

inline void require(bool holds, const char *what)
{
    if (!holds)
        finding(what);
}

// The decoder's result, or nothing when it refused the input.
template <typename Decode> auto attempt(Decode decode) -> std::optional<decltype(decode())>
{
    try {
        return decode();
    } catch (const Error &) {
        return std::nullopt;
    }
}

// The data of a service response, or nothing when the decoder refused the body or it carried no data.
template <typename Data> std::optional<Data> serviceData(const std::uint8_t *data, std::size_t size)
{
    auto response = attempt([&] { return decodeLLUResponse<Data>(bytes(data, size)); });
    if (!response || !response->data)
        return std::nullopt;
    return std::move(*response->data);
}

// For steps that must not fail on what a decoder accepted: an Error here is a finding too.
template <typename Step> auto mustSucceed(const char *what, Step step) -> decltype(step())
{
    try {
        return step();
    } catch (const Error &error) {
        finding(what, error.description());
    }
}

} // namespace glinta::fuzz

// libFuzzer calls this once per process, before the first input: no log lines per refused timestamp, and
// one fixed zone with daylight saving, so that a reproducer behaves the same on every machine. Defined
// here because each target is a program of one source file that includes this header once.
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    using namespace Qt::StringLiterals;
    setenv("TZ", "Europe/Berlin", 1);
    QLoggingCategory::setFilterRules(u"*=false"_s);
    return 0;
}
