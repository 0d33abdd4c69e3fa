#pragma once

#include <QCoreApplication>

#include <benchmark/benchmark.h>

// BENCHMARK_MAIN with an application object, which sockets, timers and coroutines need.
#define GLINTA_QT_BENCHMARK_MAIN()                                                                                  \
    int main(int argc, char **argv)                                                                                \
    {                                                                                                              \
        QCoreApplication app(argc, argv);                                                                          \
        benchmark::Initialize(&argc, argv);                                                                        \
        benchmark::RunSpecifiedBenchmarks();                                                                       \
        benchmark::Shutdown();                                                                                     \
        return 0;                                                                                                  \
    }
