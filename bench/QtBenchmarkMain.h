#pragma once

#include <benchmark/benchmark.h>

// BENCHMARK_MAIN with an application object (QCoreApplication, or QApplication for widgets), which
// sockets, timers and coroutines need.
#define GLINTA_QT_BENCHMARK_MAIN(Application)                                                                \
    int main(int argc, char **argv)                                                                          \
    {                                                                                                        \
        Application app(argc, argv);                                                                         \
        benchmark::Initialize(&argc, argv);                                                                  \
        benchmark::RunSpecifiedBenchmarks();                                                                 \
        benchmark::Shutdown();                                                                               \
        return 0;                                                                                            \
    }
