#include "EditorFixture.h"
#include "editor/ui/EditorKeyHandler.h"

#include <QClipboard>
#include <QPainter>
#include <QPlainTextEdit>
#include <QWheelEvent>
#include <cmath>
#include <numbers>

using namespace qm;
using namespace qm::test;

namespace {

class CanvasTest : public EditorFixture {};

double angleOf(QPointF from, QPointF to) {
    return std::atan2(to.y() - from.y(), to.x() - from.x()) * 180 / std::numbers::pi;
}

TEST_F(CanvasTest, HandlesAreCaughtWithinNineScreenPointsAtAnyZoom) {
    open();
    model->setTool(AnnotationTool::Select);
    const QUuid id = add(Annotation::Rectangle{QRectF(100, 100, 200, 200)});
    model->document().selectOnly(id);

    // 200 %: nine points are 4.5 pixels. Four pixels off the corner grabs the handle…
    zoom(200);
    drag(QPointF(104, 100), QPointF(80, 80));
    EXPECT_EQ(rectOf(id), QRectF(80, 80, 220, 220));
    // …six pixels off is a move of the whole mark instead.
    drag(QPointF(86, 86), QPointF(96, 96));
    EXPECT_EQ(rectOf(id), QRectF(90, 90, 220, 220));

    // 50 %: nine points are 18 pixels.
    zoom(50);
    const QRectF before = rectOf(id);
    drag(QPointF(before.right() + 16, before.bottom()),
         QPointF(before.right() + 116, before.bottom()));
    EXPECT_NEAR(rectOf(id).width(), before.width() + 116, 2.5);
    EXPECT_NEAR(rectOf(id).left(), before.left(), 0.01);
}

TEST_F(CanvasTest, ResizingPastTheOppositeEdgeFlipsAndNeverGoesBelowTwentyPixels) {
    open();
    zoom(100);
    model->setTool(AnnotationTool::Select);
    const QUuid id = add(Annotation::Rectangle{QRectF(200, 200, 100, 100)});
    model->document().selectOnly(id);
    drag(QPointF(300, 300), QPointF(200, 200));
    EXPECT_EQ(rectOf(id), QRectF(200, 200, 20, 20));

    model->document().selectOnly(id);
    drag(QPointF(220, 220), QPointF(150, 160));
    EXPECT_EQ(rectOf(id), QRectF(150, 160, 50, 40)); // flipped: origin now the dragged corner
}

TEST_F(CanvasTest, ShiftSnapsStraightStrokesToFortyFiveDegrees) {
    open();
    zoom(100);
    const double r = 200;
    const auto towards = [&](double degrees) {
        const double rad = degrees * std::numbers::pi / 180;
        return QPointF(300 + r * std::cos(rad), 300 - r * std::sin(rad));
    };
    model->setTool(AnnotationTool::Arrow);
    drag(QPointF(300, 300), towards(30), Qt::ShiftModifier);
    drag(QPointF(300, 300), towards(20), Qt::ShiftModifier);
    model->setTool(AnnotationTool::Pen);
    drag(QPointF(300, 300), towards(30), Qt::ShiftModifier);
    model->setTool(AnnotationTool::Highlighter);
    drag(QPointF(300, 300), towards(30), Qt::NoModifier);

    const QList<Annotation>& marks = model->document().annotations();
    ASSERT_EQ(marks.size(), 4);
    const auto* a30 = marks[0].as<Annotation::Arrow>();
    const auto* a20 = marks[1].as<Annotation::Arrow>();
    ASSERT_TRUE(a30 && a20);
    EXPECT_NEAR(angleOf(a30->start, a30->end), -45, 0.5);
    EXPECT_NEAR(angleOf(a20->start, a20->end), 0, 0.5);
    EXPECT_NEAR(std::hypot(a30->end.x() - 300, a30->end.y() - 300), r, 1.5); // length kept
    // A Shift pen stroke is a straight two-point stroke, with end handles like a line.
    const auto* pen = marks[2].as<Annotation::Pen>();
    ASSERT_TRUE(pen);
    ASSERT_EQ(pen->points.size(), 2);
    EXPECT_NEAR(angleOf(pen->points[0], pen->points[1]), -45, 0.5);
    EXPECT_GT(marks[3].as<Annotation::Highlight>()->points.size(), 2);
}

TEST_F(CanvasTest, DraftsSmallerThanSixPixelsBothWaysAreDropped) {
    open();
    zoom(200);
    model->setTool(AnnotationTool::Rectangle);
    drag(QPointF(100, 100), QPointF(105, 105));
    EXPECT_TRUE(model->document().annotations().isEmpty());
    EXPECT_EQ(model->document().undoCount(), 0);
    drag(QPointF(100, 100), QPointF(107, 102));
    ASSERT_EQ(model->document().annotations().size(), 1);
    EXPECT_EQ(rectOf(model->document().annotations()[0].id()), QRectF(100, 100, 7, 2));

    // A click with the arrow or pen would leave nothing visible: no mark.
    for (AnnotationTool tool : {AnnotationTool::Arrow, AnnotationTool::Pen}) {
        model->setTool(tool);
        click(QPointF(400, 400));
    }
    EXPECT_EQ(model->document().annotations().size(), 1);
}

TEST_F(CanvasTest, AWholeMoveIsOneUndoStep) {
    open();
    zoom(75);
    const QUuid id = add(Annotation::Arrow{QPointF(100, 100), QPointF(300, 200)});
    const int undoBefore = model->document().undoCount();
    model->setTool(AnnotationTool::Select);
    drag(QPointF(200, 150), QPointF(400, 450), Qt::NoModifier, 20);
    const auto* moved = model->document().annotation(id)->as<Annotation::Arrow>();
    EXPECT_NEAR(moved->start.x(), 300, 1.5);
    EXPECT_NEAR(moved->start.y(), 400, 1.5);
    EXPECT_EQ(model->document().undoCount(), undoBefore + 1);
    model->document().undo();
    const auto* back = model->document().annotation(id)->as<Annotation::Arrow>();
    EXPECT_EQ(back->start, QPointF(100, 100));
    EXPECT_EQ(back->end, QPointF(300, 200));
}

TEST_F(CanvasTest, AToolSwitchMidDragCancelsTheDragOutright) {
    open();
    zoom(100);
    const auto press = [&](QPointF p) { QTest::mousePress(canvas(), Qt::LeftButton, {}, at(p)); };
    const auto moveTo = [&](QPointF p) {
        QMouseEvent move(QEvent::MouseMove, canvas()->toWidget(p),
                         canvas()->mapToGlobal(canvas()->toWidget(p)), Qt::NoButton, Qt::LeftButton,
                         Qt::NoModifier);
        QApplication::sendEvent(canvas(), &move);
    };
    const auto release = [&](QPointF p) {
        QTest::mouseRelease(canvas(), Qt::LeftButton, {}, canvas()->toWidget(p).toPoint());
        QApplication::processEvents();
    };
    const auto idle = [&] { return std::holds_alternative<canvas::Idle>(canvas()->gesture()); };

    // A half-drawn rectangle and a pressed step badge leave nothing when the tool changes.
    model->setTool(AnnotationTool::Rectangle);
    press(QPointF(100, 100));
    moveTo(QPointF(300, 250));
    EXPECT_TRUE(std::holds_alternative<canvas::DrawShape>(canvas()->gesture()));
    model->setTool(AnnotationTool::Step);
    EXPECT_TRUE(idle());
    moveTo(QPointF(320, 260));
    release(QPointF(320, 260));
    model->setTool(AnnotationTool::Step);
    press(QPointF(400, 400));
    model->setTool(AnnotationTool::Select);
    release(QPointF(400, 400));
    EXPECT_TRUE(model->document().annotations().isEmpty());
    EXPECT_EQ(model->document().undoCount(), 0);

    // A move keeps its one undo step, and stops where it was when the tool changed.
    const QUuid id = add(Annotation::Rectangle{{100, 100, 100, 100}});
    model->setTool(AnnotationTool::Select);
    press(QPointF(150, 150));
    moveTo(QPointF(170, 180));
    model->setTool(AnnotationTool::Rectangle);
    moveTo(QPointF(400, 400));
    release(QPointF(400, 400));
    EXPECT_TRUE(idle());
    EXPECT_EQ(rectOf(id), QRectF(120, 130, 100, 100));
    EXPECT_EQ(model->document().undoCount(), 2);
    EXPECT_EQ(model->document().annotations().size(), 1);
}

TEST_F(CanvasTest, ArrowEndsStayTwelvePixelsApart) {
    open();
    zoom(100);
    model->setTool(AnnotationTool::Select);
    const QUuid id = add(Annotation::Arrow{QPointF(100, 100), QPointF(300, 100)});
    model->document().selectOnly(id);
    drag(QPointF(300, 100), QPointF(100, 100), Qt::NoModifier, 10);
    const auto* arrow = model->document().annotation(id)->as<Annotation::Arrow>();
    EXPECT_EQ(arrow->start, QPointF(100, 100));
    EXPECT_NEAR(arrow->end.x(), 112, 0.01); // on the side it came from
    EXPECT_NEAR(arrow->end.y(), 100, 0.01);
}

TEST_F(CanvasTest, MarqueeSelectsWhatItTouches) {
    open();
    zoom(50);
    const QUuid a = add(Annotation::Rectangle{QRectF(100, 100, 80, 80)});
    const QUuid b = add(Annotation::Ellipse{QRectF(300, 120, 80, 80)});
    const QUuid c = add(Annotation::Rectangle{QRectF(800, 600, 80, 80)});
    model->setTool(AnnotationTool::Select);
    drag(QPointF(50, 50), QPointF(320, 140));
    EXPECT_EQ(model->document().selectedIDs(), (QSet<QUuid>{a, b}));
    EXPECT_FALSE(model->document().selectedID().has_value());
    // A click on empty canvas clears it.
    click(QPointF(600, 400));
    EXPECT_TRUE(model->document().selectedIDs().isEmpty());
    Q_UNUSED(c);
}

TEST_F(CanvasTest, TypingInATextMarkNeverSwitchesTools) {
    open();
    zoom(100);
    model->setTool(AnnotationTool::Text);
    click(QPointF(200, 200));
    QPlainTextEdit* editor = canvas()->textEditor();
    ASSERT_NE(editor, nullptr);
    ASSERT_TRUE(waitUntil([&] { return editor->hasFocus(); }));
    ASSERT_EQ(model->document().annotations().size(), 1);
    const auto* text = model->document().annotations()[0].as<Annotation::Text>();
    ASSERT_TRUE(text);
    QTest::keyClicks(editor, QStringLiteral("rectangle vs arrow"));
    QTest::keyClick(editor, Qt::Key_Return);
    QTest::keyClicks(editor, QStringLiteral("R"));
    QTest::keyClick(editor, Qt::Key_Space);
    EXPECT_EQ(model->tool(), AnnotationTool::Text);
    EXPECT_FALSE(model->zoom().handToolActive());
    EXPECT_EQ(model->document().annotations()[0].as<Annotation::Text>()->string,
              QStringLiteral("rectangle vs arrow\nR "));

    // Escape ends typing; now the same letter is a shortcut again.
    QTest::keyClick(editor, Qt::Key_Escape);
    EXPECT_EQ(canvas()->textEditor(), nullptr);
    EXPECT_FALSE(model->document().editingTextID().has_value());
    QTest::keyClick(canvas(), Qt::Key_R, Qt::ShiftModifier);
    EXPECT_EQ(model->tool(), AnnotationTool::Rectangle);
    QTest::keyClick(canvas(), Qt::Key_L, Qt::ControlModifier);
    EXPECT_EQ(model->tool(), AnnotationTool::Rectangle);
}

TEST_F(CanvasTest, AnEmptyTextBoxGoesAwayWhenTheUserClicksElsewhere) {
    open();
    zoom(100);
    model->setTool(AnnotationTool::Text);
    click(QPointF(200, 200));
    ASSERT_EQ(model->document().annotations().size(), 1);
    click(QPointF(600, 500));
    ASSERT_EQ(model->document().annotations().size(), 1); // the first removed, a new one opened
    EXPECT_EQ(model->document().annotations()[0].as<Annotation::Text>()->frame.topLeft(),
              QPointF(600, 500));
    QTest::keyClicks(canvas()->textEditor(), QStringLiteral("kept"));
    // Switching tools from the keyboard commits it (Escape first leaves the field).
    QTest::keyClick(canvas()->textEditor(), Qt::Key_Escape);
    QTest::keyClick(canvas(), Qt::Key_V);
    EXPECT_EQ(model->tool(), AnnotationTool::Select);
    ASSERT_EQ(model->document().annotations().size(), 1);
    EXPECT_EQ(model->document().annotations()[0].as<Annotation::Text>()->string,
              QStringLiteral("kept"));
}

TEST_F(CanvasTest, CropFrameCommitsWithReturnAndCancelsWithEscape) {
    open(QSize(1000, 600));
    zoom(50);
    QTest::keyClick(canvas(), Qt::Key_C);
    ASSERT_EQ(model->tool(), AnnotationTool::Crop);
    ASSERT_EQ(model->document().cropEdit(), QRectF(0, 0, 1000, 600));
    // Bottom-right handle inwards, then move the frame.
    drag(QPointF(1000, 600), QPointF(600, 400));
    EXPECT_EQ(model->document().cropEdit(), QRectF(0, 0, 600, 400));
    drag(QPointF(300, 200), QPointF(400, 300));
    EXPECT_EQ(model->document().cropEdit(), QRectF(100, 100, 600, 400));
    QTest::keyClick(canvas(), Qt::Key_Return);
    EXPECT_EQ(model->document().cropRect(), QRectF(100, 100, 600, 400));
    EXPECT_EQ(model->tool(), AnnotationTool::Select);
    EXPECT_FALSE(model->document().cropEdit().has_value());

    // A new frame drawn outside the old one, then Escape: the committed crop stays.
    QTest::keyClick(canvas(), Qt::Key_C);
    EXPECT_EQ(model->document().cropEdit(), QRectF(100, 100, 600, 400));
    drag(QPointF(20, 20), QPointF(90, 500));
    EXPECT_EQ(model->document().cropEdit(), QRectF(20, 20, 70, 480));
    QTest::keyClick(canvas(), Qt::Key_Escape);
    EXPECT_EQ(model->document().cropRect(), QRectF(100, 100, 600, 400));
    EXPECT_EQ(model->tool(), AnnotationTool::Select);
}

TEST_F(CanvasTest, KeyboardDeletesEscapesAndHoldsTheHandTool) {
    open();
    zoom(100);
    const QUuid id = add(Annotation::Rectangle{QRectF(100, 100, 80, 80)});
    model->document().selectOnly(id);
    QTest::keyClick(canvas(), Qt::Key_Escape);
    EXPECT_TRUE(model->document().selectedIDs().isEmpty());
    model->document().selectOnly(id);
    QTest::keyClick(canvas(), Qt::Key_Backspace);
    EXPECT_TRUE(model->document().annotations().isEmpty());
    // Return without a crop is not ours.
    QTest::keyClick(canvas(), Qt::Key_Return);
    EXPECT_EQ(model->tool(), AnnotationTool::Arrow);

    // Copy-text mode: the first Escape leaves it and keeps the selection.
    const QUuid other = add(Annotation::Rectangle{QRectF(300, 100, 80, 80)});
    model->document().selectOnly(other);
    model->setOcrSelecting(true);
    QTest::keyClick(canvas(), Qt::Key_Escape);
    EXPECT_FALSE(model->ocrSelecting());
    EXPECT_EQ(model->document().selectedID(), other);
    QTest::keyClick(canvas(), Qt::Key_Escape);
    EXPECT_FALSE(model->document().selectedID().has_value());

    QTest::keyPress(canvas(), Qt::Key_Space);
    EXPECT_TRUE(model->zoom().handToolActive());
    QKeyEvent repeatUp(QEvent::KeyRelease, Qt::Key_Space, Qt::NoModifier, QStringLiteral(" "),
                       true);
    QApplication::sendEvent(QApplication::focusWidget(), &repeatUp);
    EXPECT_TRUE(model->zoom().handToolActive()); // auto-repeat does not toggle it
    ASSERT_TRUE(view->scrollView()->handOverlay()->isVisible());
    QTest::keyRelease(QApplication::focusWidget(), Qt::Key_Space);
    EXPECT_FALSE(model->zoom().handToolActive());
    EXPECT_TRUE(canvas()->hasFocus());

    // Losing the window while holding Space releases the hand.
    QTest::keyPress(canvas(), Qt::Key_Space);
    ASSERT_TRUE(model->zoom().handToolActive());
    QWidget other2;
    other2.resize(200, 200);
    other2.show();
    other2.activateWindow();
    ASSERT_TRUE(waitUntil([&] { return !model->zoom().handToolActive(); }));
}

TEST_F(CanvasTest, HandToolPansAndControlWheelZoomsAboutThePointer) {
    open(QSize(2400, 1600));
    zoom(100);
    QScrollBar* h = view->scrollView()->horizontalScrollBar();
    QScrollBar* v = view->scrollView()->verticalScrollBar();
    h->setValue(500);
    v->setValue(400);
    QWidget* viewport = view->scrollView()->viewport();
    const QPoint pointer(400, 300);
    const QPointF under = canvas()->toImage(canvas()->mapFrom(viewport, pointer));

    QWheelEvent wheel(pointer, viewport->mapToGlobal(pointer), QPoint(), QPoint(0, 120 * 3),
                      Qt::NoButton, Qt::ControlModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(viewport, &wheel);
    ASSERT_TRUE(model->zoom().zoomPercent().has_value());
    EXPECT_NEAR(*model->zoom().zoomPercent(), 100 * std::exp(0.18), 0.01);
    const QPointF after = canvas()->toImage(canvas()->mapFrom(viewport, pointer));
    EXPECT_NEAR(after.x(), under.x(), 1.0);
    EXPECT_NEAR(after.y(), under.y(), 1.0);

    // A huge delta zooms by e^0.5 at most; the result never passes 800 %.
    QWheelEvent huge(pointer, viewport->mapToGlobal(pointer), QPoint(), QPoint(0, 120 * 50),
                     Qt::NoButton, Qt::ControlModifier, Qt::NoScrollPhase, false);
    const double before = *model->zoom().zoomPercent();
    QApplication::sendEvent(viewport, &huge);
    EXPECT_NEAR(*model->zoom().zoomPercent(), before * std::exp(0.5), 0.01);
    for (int i = 0; i < 8; ++i)
        QApplication::sendEvent(viewport, &huge);
    EXPECT_EQ(*model->zoom().zoomPercent(), 800);

    zoom(100);
    h->setValue(500);
    v->setValue(400);
    QTest::keyPress(canvas(), Qt::Key_Space);
    QWidget* hand = view->scrollView()->handOverlay();
    QTest::mousePress(hand, Qt::LeftButton, {}, QPoint(300, 300));
    QMouseEvent move(QEvent::MouseMove, QPointF(200, 250), hand->mapToGlobal(QPointF(200, 250)),
                     Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(hand, &move);
    QTest::mouseRelease(hand, Qt::LeftButton, {}, QPoint(200, 250));
    QTest::keyRelease(hand, Qt::Key_Space);
    EXPECT_EQ(h->value(), 600); // the content follows the hand
    EXPECT_EQ(v->value(), 450);
    EXPECT_TRUE(model->document().annotations().isEmpty()); // panning drew nothing
}

TEST_F(CanvasTest, FitKeepsSmallImagesAtFullSizeAndCentred) {
    open(QSize(300, 200));
    EXPECT_EQ(model->zoom().fitPercent(), 100);
    zoom(10);
    const QRect viewport = view->scrollView()->viewport()->rect();
    const QPoint centre = canvas()->mapTo(view->scrollView()->viewport(),
                                          canvas()->toWidget(QPointF(150, 100)).toPoint());
    EXPECT_NEAR(centre.x(), viewport.center().x(), 2);
    EXPECT_NEAR(centre.y(), viewport.center().y(), 2);
}

TEST_F(CanvasTest, FitPercentFollowsTheViewport) {
    open(QSize(4000, 3000), QSize(1400, 1000));
    const double fit = model->zoom().fitPercent();
    EXPECT_GT(fit, 20);
    EXPECT_LT(fit, 40);
    // At fit the whole image is in view.
    EXPECT_EQ(view->scrollView()->horizontalScrollBar()->maximum(), 0);
    EXPECT_EQ(view->scrollView()->verticalScrollBar()->maximum(), 0);
}

TEST_F(CanvasTest, StepBadgesAreNumberedInOrder) {
    open();
    zoom(100);
    QTest::keyClick(canvas(), Qt::Key_N);
    click(QPointF(100, 100));
    click(QPointF(200, 100));
    ASSERT_EQ(model->document().annotations().size(), 2);
    EXPECT_EQ(model->document().annotations()[1].as<Annotation::Step>()->number, 2);
    EXPECT_EQ(model->document().annotations()[1].as<Annotation::Step>()->center, QPointF(200, 100));
}

TEST_F(CanvasTest, TheCanvasShowsWhatTheExportShows) {
    open(QSize(600, 400), QSize(1000, 800));
    zoom(100);
    model->setTool(AnnotationTool::Rectangle);
    drag(QPointF(100, 100), QPointF(300, 250));
    model->document().setSelection({});
    QApplication::processEvents();
    const QImage shown = canvas()->grab().toImage();
    const QImage exported = flatten(*model);
    const QPoint onCanvas = canvas()->toWidget(QPointF(100, 175)).toPoint();
    EXPECT_EQ(QColor(shown.pixel(onCanvas)).name(), QColor(exported.pixel(100, 175)).name());
    EXPECT_EQ(QColor(exported.pixel(100, 175)).red(), 255);
}

TEST_F(CanvasTest, CopyTextFromARegionReadsTheCaptureBeneathTheMarks) {
    ASSERT_TRUE(dir.isValid());
    store = std::make_unique<IniSettingsStore>(dir.filePath(QStringLiteral("q.conf")));
    QImage image(900, 400, QImage::Format_RGB32);
    image.fill(Qt::white);
    {
        QPainter p(&image);
        QFont font(QStringLiteral("DejaVu Sans"));
        font.setPixelSize(40);
        p.setFont(font);
        p.setPen(Qt::black);
        p.drawText(QPoint(60, 120), QStringLiteral("Invoice 4711 overdue"));
        p.drawText(QPoint(60, 300), QStringLiteral("Unrelated footer"));
    }
    model = std::make_unique<EditorModel>(image, *store);
    window = std::make_unique<QWidget>();
    window->resize(1200, 800);
    view = new AnnotationEditorView(*model, window.get());
    view->resize(1200, 800);
    view->attachKeyHandler(*window);
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    zoom(100);
    // A mark over the text does not hide it from reading.
    add(Annotation::Pixelate{QRectF(50, 70, 300, 70)});

    model->setOcrSelecting(true);
    EXPECT_EQ(canvas()->capsuleText(),
              QStringLiteral("Drag across the text you want to copy — Esc cancels"));
    drag(QPointF(40, 70), QPointF(700, 140));
    EXPECT_FALSE(model->ocrSelecting());
    ASSERT_TRUE(waitUntil([&] { return canvas()->capsuleText() == QStringLiteral("Copied"); },
                          std::chrono::seconds(30)));
    const ProcessResult clip =
        run(QStringLiteral("xclip"),
            {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-o")});
    EXPECT_EQ(QString::fromUtf8(clip.out).trimmed(), QStringLiteral("Invoice 4711 overdue"));
    EXPECT_TRUE(waitUntil([&] { return !canvas()->capsuleText().has_value(); }));

    // An empty region says so.
    model->setOcrSelecting(true);
    drag(QPointF(400, 180), QPointF(800, 240));
    ASSERT_TRUE(
        waitUntil([&] { return canvas()->capsuleText() == QStringLiteral("No text in selection"); },
                  std::chrono::seconds(30)));
}

} // namespace
