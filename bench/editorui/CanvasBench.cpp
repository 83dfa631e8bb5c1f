#include "TestSupport.h"
#include "base/SettingsStore.h"
#include "editor/model/EditorModel.h"
#include "editor/ui/AnnotationCanvas.h"
#include "editor/ui/CanvasScrollView.h"

#include <QApplication>
#include <QMouseEvent>
#include <QScrollBar>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <cmath>
#include <memory>

using namespace qm;

namespace {

// One editor canvas on a 3840 × 2160 capture in a 1600 × 1000 view, as on a laptop screen.
struct Scene {
    QTemporaryDir dir;
    std::unique_ptr<IniSettingsStore> store;
    std::unique_ptr<EditorModel> model;
    std::unique_ptr<CanvasScrollView> view;

    explicit Scene(std::optional<double> zoom) {
        store = std::make_unique<IniSettingsStore>(dir.filePath(QStringLiteral("q.conf")));
        model = std::make_unique<EditorModel>(test::makeScreenshotLikeImage(3840, 2160), *store);
        view = std::make_unique<CanvasScrollView>(*model);
        view->resize(1600, 1000);
        view->show();
        model->zoom().setZoomPercent(zoom);
        view->horizontalScrollBar()->setValue(view->horizontalScrollBar()->maximum() / 2);
        view->verticalScrollBar()->setValue(view->verticalScrollBar()->maximum() / 2);
        // A few finished marks, as in a document being worked on.
        for (int i = 0; i < 12; ++i) {
            const QPointF at(300 + 250 * i, 200 + 140 * i);
            model->document().appendAnnotation(
                Annotation(Annotation::Arrow{at, at + QPointF(200, 120)}, QColor(255, 59, 48), 4));
            model->document().appendAnnotation(
                Annotation(Annotation::Rectangle{QRectF(at + QPointF(40, -80), QSizeF(220, 90))},
                           QColor(255, 59, 48), 4));
        }
        model->setTool(AnnotationTool::Pen);
        settle();
    }

    AnnotationCanvas& canvas() const { return *view->canvas(); }

    // The canvas point at the middle of the view, plus an offset in screen points.
    QPointF visiblePoint(QPointF offset) const {
        const QPoint centre = view->viewport()->rect().center();
        return canvas().mapFrom(view->viewport(), centre) + offset;
    }

    void send(QEvent::Type type, QPointF at, Qt::MouseButton button, Qt::MouseButtons buttons) {
        QMouseEvent event(type, at, canvas().mapToGlobal(at), button, buttons, Qt::NoModifier);
        QApplication::sendEvent(&canvas(), &event);
    }

    static void settle() {
        for (int i = 0; i < 5; ++i)
            QApplication::processEvents();
    }
};

// A scribble around the middle of the view: one new point per frame.
QPointF scribble(int i) {
    return QPointF(300 * std::sin(i * 0.05), 200 * std::sin(i * 0.083));
}

// One frame = one pointer move of the pen plus the repaint it causes.
void penDrag(benchmark::State& state, std::optional<double> zoom) {
    Scene scene(zoom);
    int i = 0;
    scene.send(QEvent::MouseButtonPress, scene.visiblePoint(scribble(0)), Qt::LeftButton,
               Qt::LeftButton);
    for (auto _ : state) {
        scene.send(QEvent::MouseMove, scene.visiblePoint(scribble(++i)), Qt::NoButton,
                   Qt::LeftButton);
        QApplication::processEvents();
        if (i % 600 == 0) { // a long stroke ends; start the next on a clean page
            state.PauseTiming();
            scene.send(QEvent::MouseButtonRelease, scene.visiblePoint(scribble(i)), Qt::LeftButton,
                       Qt::NoButton);
            scene.model->document().undo();
            scene.settle();
            scene.send(QEvent::MouseButtonPress, scene.visiblePoint(scribble(i)), Qt::LeftButton,
                       Qt::LeftButton);
            state.ResumeTiming();
        }
    }
    state.counters["zoom %"] = scene.model->zoom().currentZoomPercent();
}

// The reference: repainting the whole visible canvas for every move, as a canvas that does
// not track what changed would.
void fullRepaint(benchmark::State& state, std::optional<double> zoom) {
    Scene scene(zoom);
    for (auto _ : state) {
        scene.canvas().update();
        QApplication::processEvents();
    }
    state.counters["zoom %"] = scene.model->zoom().currentZoomPercent();
}

// One Ctrl+wheel notch on a reduced view: the new zoom and its first repaint.
void BM_ZoomStep_Reduced(benchmark::State& state) {
    Scene scene(40.0);
    const QPointF pointer = scene.view->viewport()->rect().center();
    double factor = std::exp(0.06);
    for (auto _ : state) {
        scene.view->zoomBy(factor, pointer);
        QApplication::processEvents();
        factor = 1 / factor; // in and out again, staying around 40 %
    }
}
BENCHMARK(BM_ZoomStep_Reduced)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PenDrag_100(benchmark::State& state) {
    penDrag(state, 100.0);
}
void BM_PenDrag_Fit(benchmark::State& state) {
    penDrag(state, std::nullopt);
}
void BM_FullRepaint_100(benchmark::State& state) {
    fullRepaint(state, 100.0);
}
void BM_FullRepaint_Fit(benchmark::State& state) {
    fullRepaint(state, std::nullopt);
}

BENCHMARK(BM_PenDrag_100)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PenDrag_Fit)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_FullRepaint_100)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_FullRepaint_Fit)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
