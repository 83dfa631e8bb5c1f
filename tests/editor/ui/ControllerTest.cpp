#include "TestSupport.h"
#include "base/SettingsStore.h"
#include "editor/model/EditorModel.h"
#include "editor/ui/AnnotationCanvas.h"
#include "editor/ui/AnnotationEditorController.h"
#include "editor/ui/AnnotationEditorView.h"
#include "editor/ui/EditorToolbar.h"

#include <QApplication>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>
#include <memory>

using namespace qm;
using namespace qm::test;

namespace {

TEST(EditorWindowSize, FitsTheImageWithinTheScreen) {
    EXPECT_EQ(AnnotationEditorController::windowSize(QSize(3000, 2000), QRect(0, 0, 1440, 900)),
              QSize(935, 720));
    EXPECT_EQ(AnnotationEditorController::windowSize(QSize(200, 100), QRect(0, 0, 1440, 900)),
              QSize(760, 480));
    // Without a screen: 1280 × 800.
    EXPECT_EQ(AnnotationEditorController::windowSize(QSize(900, 500), std::nullopt),
              QSize(956, 634));
}

class ControllerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir.isValid());
        store = std::make_unique<IniSettingsStore>(dir.filePath(QStringLiteral("q.conf")));
        image = QImage(800, 500, QImage::Format_RGB32);
        image.fill(QColor(20, 120, 200));
    }
    QTemporaryDir dir;
    std::unique_ptr<IniSettingsStore> store;
    QImage image;
};

TEST_F(ControllerTest, DoneReportsTheFinishedImageOnceAndClosesFirst) {
    int reports = 0;
    std::optional<QImage> got;
    bool windowGoneWhenReported = false;
    std::unique_ptr<AnnotationEditorController> controller;
    controller = std::make_unique<AnnotationEditorController>(
        image, *store, [&](const std::optional<QImage>& result) {
            ++reports;
            got = result;
            windowGoneWhenReported = controller->window() == nullptr;
        });
    controller->show();
    QWidget* window = controller->window();
    ASSERT_TRUE(window);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window));
    EXPECT_EQ(window->windowTitle(), QStringLiteral("Quillmark Editor"));
    EXPECT_EQ(window->minimumSize(), QSize(760, 480));

    controller->model().document().beginChange();
    controller->model().document().appendAnnotation(
        Annotation(Annotation::Rectangle{QRectF(10, 10, 100, 100)}, Qt::red, 6));
    QTest::mouseClick(controller->view()->toolbar()->doneButton(), Qt::LeftButton);
    ASSERT_EQ(reports, 1);
    EXPECT_TRUE(windowGoneWhenReported);
    ASSERT_TRUE(got.has_value());
    EXPECT_EQ(got->size(), QSize(800, 500));
    EXPECT_EQ(QColor(got->pixel(10, 60)).name(), QStringLiteral("#ff0000"));

    // Later closes and Done do nothing.
    controller->complete(true);
    controller->complete(false);
    QApplication::processEvents();
    EXPECT_EQ(reports, 1);
}

TEST_F(ControllerTest, ClosingTheWindowReportsNoImage) {
    int reports = 0;
    std::optional<QImage> got = QImage(1, 1, QImage::Format_RGB32);
    std::unique_ptr<AnnotationEditorController> controller;
    controller = std::make_unique<AnnotationEditorController>(
        image, *store, [&](const std::optional<QImage>& result) {
            ++reports;
            got = result;
            controller.reset(); // the receiver may drop the controller right away
        });
    controller->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(controller->window()));
    controller->window()->close();
    ASSERT_TRUE(waitUntil([&] { return reports > 0; }));
    QApplication::processEvents();
    EXPECT_EQ(reports, 1);
    EXPECT_FALSE(got.has_value());
    EXPECT_EQ(controller, nullptr);
}

TEST_F(ControllerTest, CopyPutsTheFinishedImageOnTheClipboardWithAToast) {
    QStringList toasts;
    AnnotationEditorController controller(image, *store, {},
                                          [&](const QString& text, const QString& symbol) {
                                              toasts << text + QLatin1Char('|') + symbol;
                                          });
    controller.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(controller.window()));
    controller.copy();
    EXPECT_EQ(toasts, QStringList{QStringLiteral("Copied|edit-copy")});
    const ProcessResult png =
        run(QStringLiteral("xclip"),
            {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-t"),
             QStringLiteral("image/png"), QStringLiteral("-o")});
    QImage pasted;
    ASSERT_TRUE(pasted.loadFromData(png.out, "PNG"));
    EXPECT_EQ(pasted.size(), QSize(800, 500));
    EXPECT_EQ(QColor(pasted.pixel(400, 250)), QColor(20, 120, 200));
}

TEST_F(ControllerTest, AnArrowDrawnWithTheRealPointerIsInTheFinishedImage) {
    std::optional<QImage> got;
    AnnotationEditorController controller(
        image, *store, [&](const std::optional<QImage>& result) { got = result; });
    controller.show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(controller.window()));
    AnnotationCanvas* canvas = controller.view()->canvas();
    const auto screen = [&](QPointF imagePoint) {
        return canvas->mapToGlobal(canvas->toWidget(imagePoint)).toPoint();
    };
    const QPoint from = screen(QPointF(100, 400)), to = screen(QPointF(600, 100));
    const QPoint mid = (from + to) / 2;
    const auto num = [](int v) { return QString::number(v); };
    ASSERT_EQ(run(QStringLiteral("xdotool"),
                  {QStringLiteral("mousemove"), num(from.x()), num(from.y()),
                   QStringLiteral("mousedown"), QStringLiteral("1"), QStringLiteral("mousemove"),
                   num(mid.x()), num(mid.y()), QStringLiteral("mousemove"), num(to.x()),
                   num(to.y()), QStringLiteral("mouseup"), QStringLiteral("1")})
                  .exitCode,
              0);
    ASSERT_TRUE(waitUntil([&] { return controller.model().document().annotations().size() == 1; }));
    ASSERT_EQ(run(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("ctrl+Return")})
                  .exitCode,
              0);
    ASSERT_TRUE(waitUntil([&] { return got.has_value(); }));
    // The shaft's middle is red in the export.
    const QColor middle = got->pixel(350, 250);
    EXPECT_GT(middle.red(), 200);
    EXPECT_LT(middle.blue(), 120);
}

} // namespace
