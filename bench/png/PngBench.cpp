#include "TestSupport.h"
#include "base/png/PngEncoder.h"

#include <QBuffer>
#include <QImageWriter>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <map>

namespace {

// Built once per size: drawing a 4K screenshot takes longer than encoding it.
const QImage& screenshot(int width, int height) {
    static std::map<std::pair<int, int>, QImage> images;
    QImage& image = images[{width, height}];
    if (image.isNull())
        image = qm::test::makeScreenshotLikeImage(width, height);
    return image;
}

// What other Linux tools do: Qt's own PNG writer at its default settings.
void encodeWithQt(benchmark::State& state, int width, int height) {
    const QImage& image = screenshot(width, height);
    qint64 bytes = 0;
    for (auto _ : state) {
        QByteArray data;
        QBuffer buffer(&data);
        buffer.open(QIODevice::WriteOnly);
        QImageWriter writer(&buffer, "png");
        if (!writer.write(image))
            state.SkipWithError("Qt could not write the PNG");
        bytes = data.size();
        benchmark::DoNotOptimize(data.data());
    }
    state.counters["bytes"] = double(bytes);
}

// QM_PNG_LEVEL, QM_PNG_THREADS and QM_PNG_STRIPE_ROWS override the encoder's defaults, for
// tuning.
int fromEnvironment(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value ? std::atoi(value) : fallback;
}

void encodeWithQuillmark(benchmark::State& state, int width, int height, int threads) {
    const QImage& image = screenshot(width, height);
    const qm::png::EncodeOptions options{.threads = fromEnvironment("QM_PNG_THREADS", threads),
                                         .stripeRows = fromEnvironment("QM_PNG_STRIPE_ROWS", 0),
                                         .level = fromEnvironment("QM_PNG_LEVEL", 0)};
    qint64 bytes = 0;
    for (auto _ : state) {
        const auto data = qm::png::encode(image, options);
        if (!data)
            state.SkipWithError("encoding failed");
        else
            bytes = data->size();
        benchmark::DoNotOptimize(data);
    }
    state.counters["bytes"] = double(bytes);
}

void BM_png_qt_3840x2160(benchmark::State& state) {
    encodeWithQt(state, 3840, 2160);
}
void BM_png_quillmark_3840x2160(benchmark::State& state) {
    encodeWithQuillmark(state, 3840, 2160, 0);
}
// The same on one core, to tell the encoder's own speed from the gain of the second core.
void BM_png_quillmark_1thread_3840x2160(benchmark::State& state) {
    encodeWithQuillmark(state, 3840, 2160, 1);
}
void BM_png_qt_1920x1080(benchmark::State& state) {
    encodeWithQt(state, 1920, 1080);
}
void BM_png_quillmark_1920x1080(benchmark::State& state) {
    encodeWithQuillmark(state, 1920, 1080, 0);
}

} // namespace

BENCHMARK(BM_png_qt_3840x2160)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_png_quillmark_3840x2160)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_png_quillmark_1thread_3840x2160)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_png_qt_1920x1080)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_png_quillmark_1920x1080)->Unit(benchmark::kMillisecond)->UseRealTime();
