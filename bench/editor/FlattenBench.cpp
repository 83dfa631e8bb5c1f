#include "TestSupport.h"
#include "base/SettingsStore.h"
#include "editor/model/EditorModel.h"
#include "editor/model/Pixelation.h"
#include "editor/render/AnnotationRenderer.h"
#include "editor/render/Flatten.h"

#include <QPainter>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <cmath>
#include <memory>

using namespace qm;

namespace {

constexpr int kWidth = 3840, kHeight = 2160;

const QImage& screenshot() {
    static const QImage image = test::makeScreenshotLikeImage(kWidth, kHeight);
    return image;
}

// 200 marks of every kind, 20 of them pixelate rects, spread over the whole capture.
QList<Annotation> mixedMarks() {
    QList<Annotation> marks;
    quint32 state = 7;
    const auto next = [&](int range) {
        state = state * 1664525u + 1013904223u;
        return double((state >> 8) % quint32(range));
    };
    const QColor colors[] = {QColor(255, 59, 48), QColor(0, 122, 255), QColor(255, 214, 10),
                             QColor(52, 199, 89), QColor(20, 30, 110)};
    for (int i = 0; i < 200; ++i) {
        const QColor color = colors[i % 5];
        const double x = next(kWidth - 400), y = next(kHeight - 300);
        const double w = 40 + next(360), h = 30 + next(260);
        switch (i % 10) {
        case 0:
            marks << Annotation(Annotation::Pixelate{{x, y, w, h}}, color);
            break;
        case 1:
            marks << Annotation(Annotation::Rectangle{{x, y, w, h}}, color, 6);
            break;
        case 2:
            marks << Annotation(Annotation::Ellipse{{x, y, w, h}}, color, 4);
            break;
        case 3:
            marks << Annotation(Annotation::Arrow{{x, y}, {x + w, y + h}}, color, 8);
            break;
        case 4:
            marks << Annotation(Annotation::Line{{x, y + h}, {x + w, y}}, color, 5);
            break;
        case 5:
        case 6: {
            QList<QPointF> points;
            for (int k = 0; k < 60; ++k)
                points << QPointF(x + k * w / 60, y + h / 2 + std::sin(k / 4.0) * h / 2);
            if (i % 10 == 5)
                marks << Annotation(Annotation::Pen{points}, color, 4);
            else
                marks << Annotation(Annotation::Highlight{points}, color, 6);
            break;
        }
        case 7:
        case 8:
            marks << Annotation(Annotation::Text{{x, y, 360, 40},
                                                 QStringLiteral("Click Save, then check the "
                                                                "folder for the new file"),
                                                 40},
                                color, 4, i % 20 == 7);
            break;
        default:
            marks << Annotation(Annotation::Step{{x + 40, y + 40}, i / 10 + 1, 43.2}, color);
            break;
        }
    }
    return marks;
}

struct Document {
    QTemporaryDir dir;
    std::unique_ptr<IniSettingsStore> store;
    std::unique_ptr<EditorModel> model;

    Document() {
        store = std::make_unique<IniSettingsStore>(dir.filePath(QStringLiteral("q.conf")));
        model = std::make_unique<EditorModel>(screenshot(), *store);
        model->document().setAnnotations(mixedMarks());
        model->backdrop().setBackground(BackgroundStyle{QStringLiteral("indigo"), 48, 18, true});
    }
};

// Export of an open document: the pixelated source already exists.
void BM_flatten_3840x2160_200marks_backdrop(benchmark::State& state) {
    Document doc;
    flatten(*doc.model);
    const qint64 pixelKey = doc.model->document().pixelatedImage().cacheKey();
    for (auto _ : state) {
        QImage out = flatten(*doc.model);
        benchmark::DoNotOptimize(out.constBits());
    }
    if (doc.model->document().pixelatedImage().cacheKey() != pixelKey)
        state.SkipWithError("pixelation source was recomputed");
}
BENCHMARK(BM_flatten_3840x2160_200marks_backdrop)->Unit(benchmark::kMillisecond)->UseRealTime();

// The first export of a new document: includes the one pixelation run for all 20 rects.
void BM_flatten_3840x2160_200marks_backdrop_firstExport(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        auto doc = std::make_unique<Document>();
        state.ResumeTiming();
        QImage out = flatten(*doc->model);
        benchmark::DoNotOptimize(out.constBits());
        state.PauseTiming();
        doc.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_flatten_3840x2160_200marks_backdrop_firstExport)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_pixelate_3840x2160(benchmark::State& state) {
    const QImage base = screenshot().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    for (auto _ : state) {
        QImage out = pixelated(base, kWidth / 55.0);
        benchmark::DoNotOptimize(out.constBits());
    }
}
BENCHMARK(BM_pixelate_3840x2160)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_backdrop_3840x2160(benchmark::State& state) {
    const QImage base = screenshot().convertToFormat(QImage::Format_RGB32);
    const BackgroundStyle style{QStringLiteral("indigo"), 48, 18, true};
    for (auto _ : state) {
        QImage out = AnnotationRenderer::applyBackground(base, style);
        benchmark::DoNotOptimize(out.constBits());
    }
}
BENCHMARK(BM_backdrop_3840x2160)->Unit(benchmark::kMillisecond)->UseRealTime();

// Reference: what a plain Qt export of the bare capture costs (copy, paint once, no marks).
void BM_reference_qpainter_copy_3840x2160(benchmark::State& state) {
    const QImage base = screenshot().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    for (auto _ : state) {
        QImage out(base.size(), QImage::Format_ARGB32_Premultiplied);
        QPainter painter(&out);
        painter.drawImage(0, 0, base);
        painter.end();
        benchmark::DoNotOptimize(out.constBits());
    }
}
BENCHMARK(BM_reference_qpainter_copy_3840x2160)->Unit(benchmark::kMillisecond)->UseRealTime();

// Reference: the usual quick pixelation, scaling each rect down and up again with Qt.
void BM_reference_qt_scaled_pixelation_20rects_3840x2160(benchmark::State& state) {
    const QImage base = screenshot().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    QList<QRect> rects;
    for (const Annotation& a : mixedMarks())
        if (const auto* p = a.as<Annotation::Pixelate>())
            rects << p->rect.toAlignedRect();
    for (auto _ : state) {
        QImage out = base.copy();
        QPainter painter(&out);
        for (const QRect& r : rects) {
            const QImage small =
                base.copy(r).scaled(std::max(1, r.width() / 70), std::max(1, r.height() / 70),
                                    Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
            painter.drawImage(r, small.scaled(r.size()));
        }
        painter.end();
        benchmark::DoNotOptimize(out.constBits());
    }
}
BENCHMARK(BM_reference_qt_scaled_pixelation_20rects_3840x2160)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace
