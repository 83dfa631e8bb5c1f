#ifdef QUILLMARK_BENCH_WIDGETS
#include <QApplication>
using BenchApplication = QApplication;
#else
#include <QGuiApplication>
using BenchApplication = QGuiApplication;
#endif

#include <benchmark/benchmark.h>

// A Qt application around Google Benchmark; without a display the offscreen platform still
// gives fonts, painting and widgets.
int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    BenchApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
