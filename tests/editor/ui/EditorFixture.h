#pragma once

#include "TestSupport.h"
#include "base/SettingsStore.h"
#include "editor/model/EditorModel.h"
#include "editor/render/Flatten.h"
#include "editor/ui/AnnotationCanvas.h"
#include "editor/ui/AnnotationEditorView.h"
#include "editor/ui/CanvasScrollView.h"

#include <QApplication>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>
#include <memory>

namespace qm::test {

// One editor view in its own window, on a real X display, with settings in a temporary file.
class EditorFixture : public ::testing::Test {
protected:
    void open(QSize imageSize = QSize(1200, 800), QSize windowSize = QSize(1400, 1000)) {
        ASSERT_TRUE(dir.isValid());
        store = std::make_unique<IniSettingsStore>(dir.filePath(QStringLiteral("q.conf")));
        QImage image(imageSize, QImage::Format_RGB32);
        image.fill(QColor(235, 238, 242));
        model = std::make_unique<EditorModel>(image, *store);
        window = std::make_unique<QWidget>();
        window->resize(windowSize);
        view = new AnnotationEditorView(*model, window.get());
        view->resize(windowSize);
        view->attachKeyHandler(*window);
        window->show();
        window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
        canvas()->setFocus();
    }

    AnnotationCanvas* canvas() const { return view->canvas(); }

    void zoom(double percent) {
        model->zoom().setZoomPercent(percent);
        QApplication::processEvents();
    }

    // Scrolls so the image point is in view and returns where it is on the canvas widget.
    QPoint at(QPointF imagePoint) {
        QScrollArea* area = view->scrollView();
        area->ensureVisible(int(canvas()->toWidget(imagePoint).x()),
                            int(canvas()->toWidget(imagePoint).y()), 200, 200);
        QApplication::processEvents();
        return canvas()->toWidget(imagePoint).toPoint();
    }

    // A left-button drag in image pixels, through intermediate moves.
    void drag(QPointF from, QPointF to, Qt::KeyboardModifiers mods = Qt::NoModifier,
              int steps = 8) {
        const QPoint a = at(from);
        QTest::mousePress(canvas(), Qt::LeftButton, mods, a);
        for (int i = 1; i <= steps; ++i) {
            const QPointF p = from + (to - from) * (double(i) / steps);
            QMouseEvent move(QEvent::MouseMove, canvas()->toWidget(p),
                             canvas()->mapToGlobal(canvas()->toWidget(p)), Qt::NoButton,
                             Qt::LeftButton, mods);
            QApplication::sendEvent(canvas(), &move);
        }
        QTest::mouseRelease(canvas(), Qt::LeftButton, mods, canvas()->toWidget(to).toPoint());
        QApplication::processEvents();
    }

    void click(QPointF imagePoint) {
        QTest::mouseClick(canvas(), Qt::LeftButton, Qt::NoModifier, at(imagePoint));
        QApplication::processEvents();
    }

    // Adds a mark the way a user-drawn one ends up in the document.
    QUuid add(Annotation::Shape shape) {
        Annotation a(std::move(shape), Qt::red, 4);
        model->document().beginChange();
        model->document().appendAnnotation(a);
        return a.id();
    }

    QRectF rectOf(const QUuid& id) const {
        const Annotation* a = model->document().annotation(id);
        if (!a)
            return {};
        if (const auto* r = a->as<Annotation::Rectangle>())
            return r->rect;
        return a->bounds();
    }

    QTemporaryDir dir;
    std::unique_ptr<IniSettingsStore> store;
    std::unique_ptr<EditorModel> model;
    std::unique_ptr<QWidget> window;
    AnnotationEditorView* view = nullptr;
};

} // namespace qm::test
