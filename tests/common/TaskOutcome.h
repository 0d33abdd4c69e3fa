#pragma once

#include <qcoro/qcorotask.h>

#include <exception>
#include <optional>

template <typename T> struct Outcome
{
    std::optional<T> value;
    std::exception_ptr error;
};

// QCoro 0.8's waitFor never returns when the task throws, so the task is settled in a coroutine first.
template <typename T> QCoro::Task<Outcome<T>> settled(QCoro::Task<T> task)
{
    Outcome<T> outcome;
    try {
        outcome.value = co_await std::move(task);
    } catch (...) {
        outcome.error = std::current_exception();
    }
    co_return outcome;
}

template <typename T> Outcome<T> run(QCoro::Task<T> task)
{
    return QCoro::waitFor(settled(std::move(task)));
}

inline QCoro::Task<bool> settledVoid(QCoro::Task<void> task)
{
    co_await std::move(task);
    co_return true;
}

// Runs a task without a value to its end: what it threw, or null.
inline std::exception_ptr runToEnd(QCoro::Task<void> task)
{
    return run(settledVoid(std::move(task))).error;
}

// For failure messages; user-facing texts carry no secrets.
inline QByteArray describe(const std::exception_ptr &error)
{
    if (!error)
        return "no error";
    try {
        std::rethrow_exception(error);
    } catch (const std::exception &other) {
        return other.what();
    } catch (...) {
    }
    return "an unknown exception";
}
