// One poll cycle as the program runs it (sign-in with a region redirect, connections, graph) and a
// graph fetch on an established session, against glinta-sim in its own process on loopback so the
// CPU time measured is the client's alone.
#include "LibreLinkUpClient.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QProcess>

#include <benchmark/benchmark.h>
#include <qcoro/qcorotask.h>

#include <cstdio>
#include <memory>
#include <optional>

using namespace Qt::StringLiterals;
using namespace glinta;

namespace {

const QString email = u"ann@example.com"_s;
const QString password = u"correct horse"_s;

struct Simulator
{
    QProcess process;
    ServiceEndpoints endpoints;
};

Simulator *simulator()
{
    static std::unique_ptr<Simulator> instance = [] {
        auto sim = std::make_unique<Simulator>();
        sim->process.start(QStringLiteral(GLINTA_SIM_PATH), {u"--port"_s, u"0"_s});
        if (!sim->process.waitForReadyRead(10000)) {
            std::fprintf(stderr, "glinta-sim did not start\n");
            std::exit(1);
        }
        const QString line = QString::fromUtf8(sim->process.readLine()).trimmed();
        const QUrl base(line.section(u' ', -1));
        sim->endpoints.defaultBaseUrl = base;
        for (const QString &code : ServiceEndpoints::regionCodes()) {
            QUrl region = base;
            region.setPath(u'/' + code + u'/');
            sim->endpoints.regionBaseUrls.insert(code, region);
        }
        return sim;
    }();
    return instance.get();
}

// Settled inside a coroutine: QCoro's waitFor never returns from a task that throws.
template <typename T>
QCoro::Task<std::optional<T>> settled(QCoro::Task<T> task)
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
    const LibreLinkUpClient client(&network, simulator()->endpoints);
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
    const LibreLinkUpClient client(&network, simulator()->endpoints);
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

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (auto *sim = simulator(); sim->process.state() != QProcess::NotRunning) {
        sim->process.terminate();
        sim->process.waitForFinished(5000);
    }
    return 0;
}
