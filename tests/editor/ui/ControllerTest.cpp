#include "TestSupport.h"
#include "base/SettingsStore.h"
#include "editor/model/EditorModel.h"
#include "editor/ui/AnnotationCanvas.h"
#include "editor/ui/AnnotationEditorController.h"
#include "editor/ui/AnnotationEditorView.h"
#include "editor/ui/CanvasScrollView.h"
#include "editor/ui/EditorToolbar.h"

#include <QApplication>
#include <QFile>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTest>
#include <QVBoxLayout>
#include <cmath>
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
    // A key press from the real keyboard, to whichever window is active.
    static int key(const QString& keys) {
        return run(QStringLiteral("xdotool"), {QStringLiteral("key"), keys}).exitCode;
    }
    static QByteArray contents(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    static void addMark(AnnotationEditorController& controller, QRectF rect) {
        controller.model().document().beginChange();
        controller.model().document().appendAnnotation(
            Annotation(Annotation::Rectangle{rect}, Qt::red, 6));
    }
    static QMessageBox* question(const AnnotationEditorController& controller) {
        QMessageBox* box = nullptr;
        waitUntil([&] {
            box = controller.window() ? controller.window()->findChild<QMessageBox*>() : nullptr;
            return box && box->isVisible();
        });
        return box;
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

TEST_F(ControllerTest, ControlCPutsTheFinishedImageOnTheClipboardWithAToast) {
    QStringList toasts;
    AnnotationEditorController controller(
        image, *store, {}, [&](const QString& text, const QString& symbol, ToastCenter::Style) {
            toasts << text + QLatin1Char('|') + symbol;
        });
    controller.show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(controller.window()));
    ASSERT_EQ(key(QStringLiteral("ctrl+c")), 0);
    ASSERT_TRUE(waitUntil([&] { return !toasts.isEmpty(); }));
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

TEST_F(ControllerTest, AskClaudeShowsOnlyWhenWiredAndHandsOverTheFinishedImage) {
    AnnotationEditorController plain(image, *store);
    plain.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(plain.window()));
    EXPECT_FALSE(plain.view()->toolbar()->askAIButton()->isVisible());
    plain.complete(false);

    std::optional<QImage> asked;
    AnnotationEditorController controller(image, *store);
    controller.onAskAI = [&](const QImage& finished) { asked = finished; };
    controller.model().document().setCropEdit(QRectF(100, 50, 300, 200));
    controller.model().document().commitCropEdit();
    controller.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(controller.window()));
    EditorToolbar* toolbar = controller.view()->toolbar();
    ASSERT_TRUE(toolbar->askAIButton()->isVisible());
    QTest::mouseClick(toolbar->askAIButton(), Qt::LeftButton);
    ASSERT_TRUE(asked.has_value());
    EXPECT_EQ(asked->size(), QSize(300, 200));
    EXPECT_EQ(QColor(asked->pixel(150, 100)), QColor(20, 120, 200));

    controller.complete(false);

    // Embedded in a narrow pane: the commands at the end move into the "more" menu.
    AnnotationEditorController embedded(image, *store);
    embedded.onAskAI = [&](const QImage& finished) { asked = finished; };
    QWidget pane;
    new QVBoxLayout(&pane);
    embedded.embed(pane);
    toolbar = embedded.view()->toolbar();
    pane.resize(1400, 600);
    pane.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&pane));
    ASSERT_TRUE(waitUntil([&] { return toolbar->askAIButton()->isVisible(); }));
    EXPECT_FALSE(toolbar->moreButton()->isVisible());
    pane.resize(toolbar->minimumWidth(), 600);
    ASSERT_TRUE(waitUntil([&] { return toolbar->moreButton()->isVisible(); }));
    EXPECT_FALSE(toolbar->askAIButton()->isVisible());
    EXPECT_FALSE(toolbar->copyImageButton()->isVisible());
    EXPECT_TRUE(toolbar->doneButton()->isVisible());
    Q_EMIT toolbar->moreButton()->menu()->aboutToShow();
    QStringList items;
    for (QAction* action : toolbar->moreButton()->menu()->actions())
        items << action->text();
    ASSERT_TRUE(items.contains(QStringLiteral("Ask Claude about this image")));
    EXPECT_TRUE(items.contains(QStringLiteral("Copy Image")));
    asked.reset();
    toolbar->moreButton()->menu()->actions().first()->trigger();
    EXPECT_EQ(asked->size(), QSize(800, 500));
    pane.resize(1400, 600);
    ASSERT_TRUE(waitUntil([&] { return toolbar->askAIButton()->isVisible(); }));
    EXPECT_FALSE(toolbar->moreButton()->isVisible());
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

TEST_F(ControllerTest, TheWindowOpensAtFullSizeForASmallCaptureAndAtAWholeFractionForALargeOne) {
    const auto openingZoom = [&](QSize size) {
        QImage capture(size, QImage::Format_RGB32);
        capture.fill(Qt::gray);
        AnnotationEditorController controller(capture, *store);
        controller.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(controller.window()));
        QApplication::processEvents();
        const CanvasScrollView* scroll = controller.view()->scrollView();
        EXPECT_EQ(scroll->horizontalScrollBar()->maximum(), 0);
        EXPECT_EQ(scroll->verticalScrollBar()->maximum(), 0);
        return controller.model().zoom().currentZoomPercent();
    };
    EXPECT_EQ(openingZoom(QSize(900, 600)), 100);
    EXPECT_EQ(openingZoom(QSize(1450, 650)), 100); // within 80 % of the screen
    const double large = openingZoom(QSize(3000, 2000));
    EXPECT_LT(large, 100);
    EXPECT_DOUBLE_EQ(100 / large, std::round(100 / large)); // 50, 33⅓ or 25 %, never 37 %
}

TEST_F(ControllerTest, ClosingWithUnsavedMarksAsksAndCancelKeepsTheWindow) {
    int reports = 0;
    std::optional<QImage> got;
    AnnotationEditorController controller(image, *store, [&](const std::optional<QImage>& r) {
        ++reports;
        got = r;
    });
    controller.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(controller.window()));
    addMark(controller, QRectF(10, 10, 100, 100));

    controller.window()->close();
    QMessageBox* box = question(controller);
    ASSERT_TRUE(box);
    box->button(QMessageBox::Cancel)->click();
    QApplication::processEvents();
    ASSERT_TRUE(controller.window());
    EXPECT_TRUE(controller.window()->isVisible());
    EXPECT_EQ(reports, 0);
    EXPECT_EQ(controller.model().document().annotations().size(), 1);

    // Save, for a fresh capture, finishes as Done does: the capture flow gets the image.
    controller.window()->close();
    box = question(controller);
    ASSERT_TRUE(box);
    box->button(QMessageBox::Save)->click();
    ASSERT_TRUE(waitUntil([&] { return reports > 0; }));
    EXPECT_EQ(reports, 1);
    ASSERT_TRUE(got.has_value());
    EXPECT_EQ(QColor(got->pixel(10, 60)), QColor(Qt::red));
}

TEST_F(ControllerTest, DiscardClosesWithoutAnImageAndAnUntouchedCaptureClosesWithoutAsking) {
    std::vector<std::optional<QImage>> reports;
    auto edited = std::make_unique<AnnotationEditorController>(
        image, *store, [&](const std::optional<QImage>& r) { reports.push_back(r); });
    edited->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(edited->window()));
    edited->model().backdrop().setBackground(BackgroundStyle{});
    edited->window()->close();
    QMessageBox* box = question(*edited);
    ASSERT_TRUE(box); // a backdrop is an edit too
    box->button(QMessageBox::Discard)->click();
    ASSERT_TRUE(waitUntil([&] { return reports.size() == 1; }));
    EXPECT_FALSE(reports[0].has_value());

    AnnotationEditorController untouched(
        image, *store, [&](const std::optional<QImage>& r) { reports.push_back(r); });
    untouched.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(untouched.window()));
    untouched.window()->close();
    ASSERT_TRUE(waitUntil([&] { return reports.size() == 2; }));
    EXPECT_FALSE(reports[1].has_value());
}

TEST_F(ControllerTest, SavingAnEditedFileWritesANewFileBesideItAndLeavesTheOriginal) {
    const QString original = dir.filePath(QStringLiteral("shot.png"));
    ASSERT_TRUE(image.save(original));
    const QByteArray originalBytes = contents(original);
    // An earlier annotated copy is not written over either.
    const QString earlier = dir.filePath(QStringLiteral("shot annotated.png"));
    {
        QFile file(earlier);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("earlier");
    }
    QStringList toasts, saved;
    int reports = 0;
    AnnotationEditorController controller(
        image, *store, [&](const std::optional<QImage>&) { ++reports; },
        [&](const QString& text, const QString&, ToastCenter::Style) { toasts << text; });
    controller.saveBeside = SaveBeside{dir.path(), QStringLiteral("shot annotated")};
    controller.onSaved = [&](const QString& path) { saved << path; };
    controller.show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(controller.window()));

    addMark(controller, QRectF(10, 10, 100, 100));
    ASSERT_EQ(key(QStringLiteral("ctrl+s")), 0);
    ASSERT_TRUE(waitUntil([&] { return saved.size() == 1; }));
    const QString written = dir.filePath(QStringLiteral("shot annotated 2.png"));
    EXPECT_EQ(saved[0], written);
    EXPECT_EQ(toasts.last(), QStringLiteral("Saved “shot annotated 2.png”"));
    EXPECT_EQ(contents(original), originalBytes);
    EXPECT_EQ(contents(earlier), QByteArray("earlier"));
    EXPECT_EQ(QColor(QImage(written).pixel(10, 60)), QColor(Qt::red));
    EXPECT_FALSE(controller.hasUnsavedChanges());
    EXPECT_TRUE(controller.window()->isVisible()); // saving is not finishing

    // The next save replaces the file this editor wrote, rather than making another.
    addMark(controller, QRectF(300, 300, 100, 100));
    ASSERT_EQ(key(QStringLiteral("ctrl+s")), 0);
    ASSERT_TRUE(waitUntil([&] { return saved.size() == 2; }));
    EXPECT_EQ(saved[1], written);
    EXPECT_EQ(QColor(QImage(written).pixel(300, 350)), QColor(Qt::red));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(QStringLiteral("shot annotated 3.png"))));

    // Save As goes where the user says; Done with nothing new to write just closes.
    controller.chooseSaveFile = [&](QWidget*, const QString& suggested) {
        EXPECT_EQ(suggested, written);
        return dir.filePath(QStringLiteral("chosen"));
    };
    addMark(controller, QRectF(500, 100, 100, 100));
    ASSERT_EQ(key(QStringLiteral("ctrl+shift+s")), 0);
    ASSERT_TRUE(waitUntil([&] { return saved.size() == 3; }));
    EXPECT_EQ(saved[2], dir.filePath(QStringLiteral("chosen.png")));
    EXPECT_EQ(QColor(QImage(saved[2]).pixel(500, 150)), QColor(Qt::red));
    controller.window()->close();
    ASSERT_TRUE(waitUntil([&] { return reports == 1; }));
    EXPECT_EQ(saved.size(), 3);
    EXPECT_EQ(contents(original), originalBytes);
}

TEST_F(ControllerTest, ASaveThatFailsSaysWhyAndKeepsTheWorkOpen) {
    const QString blocker = dir.filePath(QStringLiteral("not-a-folder"));
    {
        QFile file(blocker);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }
    QStringList toasts;
    int reports = 0, errors = 0;
    AnnotationEditorController controller(
        image, *store, [&](const std::optional<QImage>&) { ++reports; },
        [&](const QString& text, const QString&, ToastCenter::Style style) {
            toasts << text;
            errors += style == ToastCenter::Style::Error;
        });
    controller.saveBeside = SaveBeside{blocker, QStringLiteral("shot annotated")};
    controller.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(controller.window()));
    addMark(controller, QRectF(10, 10, 100, 100));
    QTest::mouseClick(controller.view()->toolbar()->doneButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return !toasts.isEmpty(); }));
    EXPECT_TRUE(toasts.last().startsWith(QStringLiteral("Not saved: ")))
        << toasts.last().toStdString();
    EXPECT_GT(toasts.last().size(), 20);
    EXPECT_EQ(errors, 1);
    EXPECT_EQ(reports, 0);
    EXPECT_TRUE(controller.hasUnsavedChanges());
    ASSERT_TRUE(controller.window());
    EXPECT_TRUE(controller.window()->isVisible());
}

} // namespace
