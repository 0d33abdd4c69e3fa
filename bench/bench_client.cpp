// One poll cycle as the program runs it (sign-in with a region redirect, connections, graph) and a
// graph fetch on an established session, against glinta-sim in its own process on loopback so the
// CPU time measured is the client's alone.
#include "QtBenchmarkMain.h"
#include "SimulatorProcess.h"
#include "client/LibreLinkUpClient.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>

#include <benchmark/benchmark.h>
#include <qcoro/qcorotask.h>

#include <cstdio>
#include <optional>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QString email = u"ann@example.com"_s;
const QString password = u"correct horse"_s;

SimulatorProcess *simulator()
{
    static SimulatorProcess instance;
    return &instance;
}

// Settled inside a coroutine: QCoro's waitFor never returns from a task that throws.
template <typename T> QCoro::Task<std::optional<T>> settled(QCoro::Task<T> task)
{
    try {
        co_return co_await std::move(task);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "request failed: %s\n", error.what());
        co_return std::nullopt;
    }
}

QCoro::Task<LLUGraphData> pollCycle(const LibreLinkUpClient &client)
{
    const auto session = co_await client.login(email, password);
    const auto connections = co_await client.fetchConnections(session);
    co_return co_await client.fetchGraph(session, connections.first().patientId);
}

void BM_SignInConnectionsGraph(benchmark::State &state)
{
    QNetworkAccessManager network;
    const LibreLinkUpClient client(&network, simulator()->endpoints());
    for (auto _ : state) {
        if (!QCoro::waitFor(settled(pollCycle(client)))) {
            state.SkipWithError("cycle failed");
            return;
        }
    }
}
BENCHMARK(BM_SignInConnectionsGraph)->Iterations(1)->Repetitions(100)->Unit(benchmark::kMillisecond);

void BM_GraphOnSession(benchmark::State &state)
{
    QNetworkAccessManager network;
    const LibreLinkUpClient client(&network, simulator()->endpoints());
    const auto session = QCoro::waitFor(settled(client.login(email, password)));
    if (!session) {
        state.SkipWithError("sign-in failed");
        return;
    }
    for (auto _ : state) {
        if (!QCoro::waitFor(settled(client.fetchGraph(*session, u"p-0001"_s)))) {
            state.SkipWithError("graph failed");
            return;
        }
    }
}
BENCHMARK(BM_GraphOnSession)->Iterations(1)->Repetitions(100)->Unit(benchmark::kMillisecond);

} // namespace

GLINTA_QT_BENCHMARK_MAIN(QCoreApplication)
