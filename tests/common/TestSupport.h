#pragma once

#include "support/Error.h"

#include <QTest>

#include <tuple>

// A data function's columns in one statement: columns<QString, int>("name", "count").
template <typename... Types, typename... Names> void columns(Names... names)
{
    static_assert(sizeof...(Types) == sizeof...(Names), "a name for each column");
    (QTest::addColumn<Types>(names), ...);
}

// The current row's values of those columns: const auto [name, count] = fetch<QString, int>("name", "count").
template <typename... Types, typename... Names> std::tuple<Types...> fetch(Names... names)
{
    static_assert(sizeof...(Types) == sizeof...(Names), "a name for each column");
    return {*static_cast<Types *>(QTest::qData(names, qMetaTypeId<Types>()))...};
}

// What `call` threw, in the words a person reads, or "ok" when it threw nothing.
template <typename Call> QString errorOf(Call call)
{
    try {
        call();
    } catch (const glinta::Error &error) {
        return error.description();
    }
    return u"ok"_qs;
}
